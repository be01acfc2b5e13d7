// The recorder: what the supervisor's main thread got from the world, line by line, so that a fault can be replayed.
//
// Whatever decides what the supervisor does next comes to it through a call: an event, a parameter, the result of a wait, of
// a network request or of a start. Each of these calls is a `Crossing`. In a running decoder a crossing writes a line into
// the recorder's file /run/decoder/recording (ring.h). In a replay the same crossing gives the recorded result back and the
// call is not made; what goes in has to be what went in then. So both sides are written once, in one place, and can't differ.
//
// A supervisor that does not record, and every unit test, has neither file nor tape: a crossing then only makes its call.
// Crossings inside of a crossing are a part of it and leave no line. Signal handlers make none.
#pragma once

#include "recorder/tape.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace recorder {

inline constexpr const char* recordingFile = "/run/decoder/recording"; // below the appliance root

// Begins to record into that file, unless the parameter "Decoder.RecordingSize" (KiB) is 0. A failure is logged, and the
// supervisor works without. Main thread, once, before other threads exist.
void startRecording();

// Records into another file, for tests and benchmarks; false with errno.
bool startRecordingTo(const std::string& path, std::size_t bytes);
void stopRecording();

// From now on the lines of this thread have the letter e: it is the event handler.
void recordAsEventHandler();

// Replays this tape until it is null again. The tape has to outlive the replay. One thread.
void replay(Tape* tape);
Tape* replayed();

// Whether the next turn has to begin with the state of the machine: in a running decoder now and then, so that the file has
// one however long it runs; in a replay where the recording has one. Main thread, outside of crossings.
bool isCheckpointDue();

// All that is written between two checkpoints can be replayed from the first of them, so what was said before does not count.
void checkpointBegins();
std::uint64_t checkpointsBegun();

class Crossing {
public:
    explicit Crossing(const char* call);
    ~Crossing(); // writes the line
    Crossing(const Crossing&) = delete;
    Crossing& operator=(const Crossing&) = delete;

    // True: the results come from the tape, and the call must not be made.
    bool replays() const { return mode_ == Mode::replays; }
    bool records() const { return mode_ == Mode::records; }

    // What goes in. In a replay it has to be what is on the tape: throws Different otherwise. Texts without secrets.
    Crossing& in(std::int64_t number);
    Crossing& in(std::string_view text);

    // What comes out: the value is written, or read from the tape. Throws Different for a line that can't be read.
    Crossing& out(std::int64_t& number);
    Crossing& out(int& number);
    Crossing& out(bool& flag);
    Crossing& out(std::string& text);

private:
    enum class Mode { inactive, records, replays };

    void readFailed() const;

    const char* call_;
    Mode mode_;
    std::string_view left_; // of the line, in a replay
};

// The number that `act` returns; in a replay the recorded one, and `act` is not called.
template<class Act>
int outcome(const char* call, Act act) {
    Crossing crossing(call);
    int value = crossing.replays() ? 0 : act();
    crossing.out(value);
    return value;
}

} // namespace recorder

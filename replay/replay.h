// Drives the real state machine with a part of a recording, in place of the world, and with the recording's clock.
//
// The machine, the source cache, the detection, the barriers and the players' command lines are the supervisor's own code.
// What they get from outside is on the tape (recorder/recorder.h); what they do to the outside goes to world.cpp, where it
// has no effect. One replay at a time; one thread.
#pragma once

#include "replay/recording.h"

#include <functional>
#include <string>

namespace replay {

struct Transition {
    std::int64_t time; // microseconds of the recording's clock
    int from;
    int to;
};

struct Result {
    std::size_t transitions = 0; // that were the same
    std::string difference;      // the first one, as a sentence; "": none
};

// `show` gets each transition as soon as the machine has made it, and it was the recorded one.
Result replayPart(const Part& part, const std::function<void(const Transition&)>& show);

// The transition as the log has it: "CONNECT(2) -> REQUEST_ENCODER_TYPE(6)".
std::string textOf(const Transition& transition);

// For world.cpp: whether the supervisor's log lines are printed.
void printLog(bool on);

} // namespace replay

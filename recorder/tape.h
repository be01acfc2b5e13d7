// What a replay reads: the lines of the main thread, one after the other, in place of the real world.
//
// A line is "MICROSECONDS THREAD CALL FIELDS...": when the call returned, on gettimeusec()'s clock; m for the main thread, e
// for the event handler; the call's name; what it was given and what it returned.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace recorder {

struct TapeLine {
    std::int64_t time = 0;
    char thread = 'm';
    std::string call;
    std::string fields;
};

// The parts of a line; no value when the text is no such line.
std::optional<TapeLine> parseLine(std::string_view text);

// The tape is over: everything was replayed.
struct EndOfTape : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The machine does something else than it did when it was recorded, or the line can't be read.
struct Different : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// One thread.
class Tape {
public:
    explicit Tape(std::vector<TapeLine> lines) : lines_(std::move(lines)) {}

    // The next line, which has to be one of this call. Throws EndOfTape and Different.
    const TapeLine& take(std::string_view call);

    // Whether the next line is one of this call.
    bool isNext(std::string_view call) const;

    // The time of the line that was taken last: the simulated clock.
    std::int64_t now() const { return now_; }
    std::size_t taken() const { return next_; }

private:
    std::vector<TapeLine> lines_;
    std::size_t next_ = 0;
    std::int64_t now_ = 0;
};

} // namespace recorder

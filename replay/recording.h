// A recording of the supervisor, as a file has it: the recorder's own file, or the text that `skelmor-replay --print` makes
// of it.
#pragma once

#include "recorder/tape.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace replay {

// The first line of a recording as a text.
inline constexpr std::string_view textHeader = "skelmor recording 1";

// What belongs together: the lines of one supervisor, without a gap.
struct Part {
    int pid = -1;        // of the supervisor; -1: no line says it
    std::string version; // likewise "" then
    std::int64_t timeOfDay =
        0; // what has to be added to a line's time to get microseconds since 1970; 0: unknown
    std::size_t leftOut = 0; // lines of the main thread before the first state of the machine
    std::vector<recorder::TapeLine>
        lines; // of the main thread, from a state of the machine on; empty: there is none
};

// The lines of a file. Throws std::runtime_error with a sentence when it is no recording, or one of another version.
std::vector<std::string> linesOf(std::string_view bytes);

// The parts of these lines that have any line of the main thread.
std::vector<Part> partsOf(const std::vector<std::string>& lines);

// The lines as a text.
std::string asText(const std::vector<std::string>& lines);

} // namespace replay

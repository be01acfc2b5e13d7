// Other programs of the machine that know something.
#pragma once

#include <cstddef>
#include <string>

namespace bug_report {

inline constexpr std::size_t mostOutput = std::size_t{2} * 1024 * 1024; // bytes

// What the shell's command prints, at most `most` bytes. Waits for its end. Throws std::runtime_error without a process for it.
std::string outputOf(const std::string& command, std::size_t most = mostOutput);

} // namespace bug_report

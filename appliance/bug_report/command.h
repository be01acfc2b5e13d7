// Other programs of the machine that know something.
#pragma once

#include <string>

namespace bug_report {

// What the shell's command prints, at most 2 MiB. Waits for its end. Throws std::runtime_error without a process for it.
std::string outputOf(const std::string& command);

} // namespace bug_report

// The appliance's processes.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace bug_report {

// The names of the appliance's programs, as the kernel and the log have them.
const std::vector<std::string>& programNames();

// A line for each process of these programs: number, parent, state, threads, memory, and what it waits for in the kernel.
// No command lines: a player's has a password. `proc`: the folder with the processes, "/proc".
std::string processTable(const std::string& proc);

// The value of a line "Name:   value" of /proc/PID/status; "" when there is none.
std::string statusValue(std::string_view text, std::string_view name);

} // namespace bug_report

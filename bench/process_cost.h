// What a running process costs: CPU time and memory, from /proc.
#pragma once

#include <sys/types.h>
#include <vector>

namespace bench {

// The process and all its descendants that run now.
std::vector<pid_t> familyOf(pid_t pid);

// CPU seconds that these processes have used so far, without children that have ended.
double cpuSecondsOf(const std::vector<pid_t>& pids);

// Milliseconds of processor time that the present threads of these processes have used so far, to the nanosecond.
double processorMsOf(const std::vector<pid_t>& pids);

// Memory in MB that belongs to these processes alone.
double privateMegabytesOf(const std::vector<pid_t>& pids);

} // namespace bench

// The processes of a test's appliances, as the kernel shows them.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

namespace faults {

struct ProcessEntry {
    pid_t pid = -1;
    pid_t parent = -1;
    char state = '?'; // as in /proc/PID/stat: R, S, T, Z ...
    std::string name; // at most fifteen characters
    std::uint64_t started = 0;
};

// The processes that descend from this one, in the order of their pids. A process that ends meanwhile may be missing.
std::vector<ProcessEntry> descendants();

// The name of one of the decoder's players, as the kernel cuts it.
bool isPlayerName(const std::string& name);

// Whether all threads of the process have stopped; also true if it is gone.
bool hasStopped(pid_t pid);

// What a process holds, for a soak.
struct Holdings {
    double privateKb = 0; // memory that no other process shares
    int descriptors = 0;
    int threads = 0;
};
Holdings holdingsOf(pid_t pid);

} // namespace faults

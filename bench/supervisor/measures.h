// What supervisor_bench measures. Each function tells samples and returns whether everything happened that had to.
#pragma once

namespace bench {

struct SupervisorOptions {
    int repetitions = 20;
    int switches = 10'000; // for the memory
    int seconds = 10;      // of idling, and of many supervisors
    int supervisors = 100;
};

// launch: from the select to the first instruction of the new player, beside a fork and exec in a process of that size.
bool measureLaunch(const SupervisorOptions& options);
// death: from a player's death to the supervisor's reaction, beside SIGCHLD in a bare process.
bool measureDeath(const SupervisorOptions& options);
// restart: from a program's death to its successor, beside other supervisors.
bool measureRestart(const SupervisorOptions& options);
// start: from the start to the first player, without the detection.
bool measureStart(const SupervisorOptions& options);
// wakeups, memory-0, memory-many
bool measureIdle(const SupervisorOptions& options);
// many-unserved, many-cpu
bool measureMany(const SupervisorOptions& options);

} // namespace bench

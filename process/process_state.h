// The values of the process that several folders read.
//
// Only the main thread writes them. The event handler thread reads the supervisor's pid and the mode; the shutdown
// handler and its watchdog read the two player pids, at any moment. Lock-free atomics are safe for all of them.
#pragma once

#include <atomic>

enum Mode : int { MODE_AUTO = 0, MODE_MANUAL = 1 };

struct ProcessState {
    std::atomic<int> supervisorPid{0}; // getpid(), set first thing in main
    std::atomic<int> verbosity{0};     // count of -v
    std::atomic<int> mode{MODE_AUTO};
    std::atomic<int> currentPID{-1}; // player that shows the current source; -1 none
    std::atomic<int> pendingPID{-1}; // player being started; -1 none
};

extern ProcessState process;

// The mode, for any thread.
int getMode();

// Changes the mode; a change is logged when the verbosity is above 0. Main thread.
void setMode(int newMode);

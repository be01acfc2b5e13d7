// SIGUSR1 during a detection: "give up, something more urgent came".
//
// While a detection works, SIGUSR1 waits; it is let in only inside network waits and by the interruption
// test. So one that comes just before a wait ends that wait, and none interrupts the allocator or the log.
// Main thread.
#pragma once

#include <csignal>

namespace detect {

// For the life of one detection SIGUSR1 has a handler, and system calls that it reaches fail with EINTR. What
// came before is discarded: it was ignored then. Afterwards SIGUSR1 is ignored again.
class InterruptionSignal {
public:
    InterruptionSignal();
    ~InterruptionSignal();
    InterruptionSignal(const InterruptionSignal&) = delete;
    InterruptionSignal& operator=(const InterruptionSignal&) = delete;

private:
    sigset_t saved_;
};

// The interruption test: whether this detection is to end. Uses libcommon's flag up; once a signal has come,
// the answer stays true until the next detection.
bool isDetectionInterrupted();

// The handler. Declared for tests.
void autoDetectSignalHandler(int signo);

} // namespace detect

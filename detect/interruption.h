// SIGUSR1 interrupts a detection because something more urgent has come.
//
// SIGUSR1 is blocked during a detection and delivered only inside network waits and in the interruption test.
// So a signal that comes just before a wait ends that wait, and no signal interrupts the allocator or the
// log. Main thread.
#pragma once

#include <csignal>

namespace detect {

// Gives SIGUSR1 a handler while the object lives; interrupted system calls fail with EINTR. A SIGUSR1 that came
// before is discarded, because it was ignored at that time. Afterwards SIGUSR1 is ignored again.
class InterruptionSignal {
public:
    InterruptionSignal();
    ~InterruptionSignal();
    InterruptionSignal(const InterruptionSignal&) = delete;
    InterruptionSignal& operator=(const InterruptionSignal&) = delete;

private:
    sigset_t saved_;
};

// The interruption test: whether this detection must end. Clears libcommon's flag; once a signal has come, the answer
// stays true until the next detection.
bool isDetectionInterrupted();

// The handler. Declared for tests.
void autoDetectSignalHandler(int signo);

} // namespace detect

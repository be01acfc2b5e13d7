// Which signals may interrupt the main thread, and where.
//
// The main thread keeps SIGINT and SIGCHLD blocked while it works, and during a detection SIGUSR1 too, so
// that no handler ever interrupts the allocator, stdio, the log or a half-changed table. They are let in only
// where the thread waits: around the queue's condition variable, inside network waits, in fixed sleeps. Every
// other thread blocks everything. SIGSEGV is never blocked on the main thread.
#pragma once

#include <csignal>

// From now on SIGINT and SIGCHLD wait for the main thread's next wait.
void blockSignalsWhileWorking();

// An auxiliary thread's first action: no signal is ever taken here.
void blockAllSignals();

// What a forked child gets before it runs a program: an empty mask.
void unblockAllSignals();

// Lets SIGINT and SIGCHLD in for the life of the object, then restores the mask. For waits that are no system
// call with a mask of its own; what is pending is delivered at once, in the constructor.
class OpenSignals {
public:
    OpenSignals();
    ~OpenSignals();
    OpenSignals(const OpenSignals&) = delete;
    OpenSignals& operator=(const OpenSignals&) = delete;

private:
    sigset_t saved_;
};

// Sleeps for the whole time with signals let in, whatever handlers run meanwhile.
void sleepSeconds(int seconds);

// Delivers a pending `signo` that this thread keeps blocked, if there is one; returns after its handler.
void deliverPending(int signo);

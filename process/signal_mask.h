// Which signals may interrupt the main thread, and where.
//
// The main thread keeps SIGINT and SIGCHLD blocked while it works, and during a detection SIGUSR1 too, so that no
// handler ever interrupts the allocator, stdio, the log or a half-changed table. It opens them only where it waits:
// around the queue's condition variable, inside network waits, in fixed sleeps. A thread that always has work would
// never wait, so it also lets pending signals in once per take of the event queue. Every other thread blocks all
// signals. SIGSEGV is never blocked on the main thread.
#pragma once

#include <csignal>

// From here on SIGINT and SIGCHLD stay pending until the main thread lets them in.
void blockSignalsWhileWorking();

// An auxiliary thread's first action: all signals are left to the main thread.
void blockAllSignals();

// Empties the mask: in a forked child before it runs a program, and at start-up.
void unblockAllSignals();

// Lets SIGINT and SIGCHLD in for the life of the object, then restores the mask. For waits that are not a
// system call with a mask of its own. The constructor delivers what is pending.
class OpenSignals {
public:
    OpenSignals();
    ~OpenSignals();
    OpenSignals(const OpenSignals&) = delete;
    OpenSignals& operator=(const OpenSignals&) = delete;

private:
    sigset_t saved_;
};

// Delivers a pending SIGINT or SIGCHLD now. Call it where no lock is held.
void letSignalsIn();

// Sleeps for a moment with signals let in; a handler that runs ends the sleep early.
void pauseMilliseconds(int milliseconds);

// Sleeps for the whole time with signals let in, whatever handlers run meanwhile.
void sleepSeconds(int seconds);

// Delivers one pending `signo` that this thread keeps blocked; returns after its handler. Does nothing when there
// is none.
void deliverPending(int signo);

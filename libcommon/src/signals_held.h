// Keeps signals away from this thread for the life of the object.
//
// For sections that hold a lock and are also entered from signal handlers: a handler that came in between would wait
// for the very thread that it interrupted. Signals that report a crash stay unblocked. Safe in a signal handler.
#pragma once

#include <cerrno>
#include <csignal>
#include <initializer_list>
#include <pthread.h>

namespace local {

class SignalsHeld {
public:
    SignalsHeld() {
        sigset_t all;
        sigfillset(&all);
        for (const int crash : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT})
            sigdelset(&all, crash);
        pthread_sigmask(SIG_BLOCK, &all, &saved_);
    }
    ~SignalsHeld() { pthread_sigmask(SIG_SETMASK, &saved_, nullptr); }
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;

private:
    sigset_t saved_;
};

// Callers are often about to log errno, and signal handlers must leave it as they found it.
class ErrnoKept {
public:
    ErrnoKept() = default;
    ~ErrnoKept() { errno = saved_; }
    ErrnoKept(const ErrnoKept&) = delete;
    ErrnoKept& operator=(const ErrnoKept&) = delete;

    int value() const { return saved_; }

private:
    int saved_ = errno;
};

} // namespace local

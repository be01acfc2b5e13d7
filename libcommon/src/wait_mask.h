// The signal mask of a wait.
//
// The supervisor's main thread keeps SIGINT and SIGCHLD blocked while it works and opens them only where it waits. A
// wait of the library does the same with ppoll(), which opens them atomically.
#pragma once

#include <csignal>
#include <pthread.h>
#include <unistd.h>

namespace local {

inline bool onMainThread() {
    return gettid() == getpid();
}

// The calling thread's mask, on the main thread without SIGINT and SIGCHLD.
inline sigset_t waitMask(bool mainThread) {
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    if (mainThread) {
        sigdelset(&mask, SIGINT);
        sigdelset(&mask, SIGCHLD);
    }
    return mask;
}

} // namespace local

#include "process/signal_mask.h"

#include <cerrno>
#include <ctime>
#include <pthread.h>

namespace {

sigset_t waitedForSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGCHLD);
    return set;
}

} // namespace

void blockSignalsWhileWorking() {
    const sigset_t set = waitedForSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

void blockAllSignals() {
    sigset_t set;
    sigfillset(&set);
    pthread_sigmask(SIG_SETMASK, &set, nullptr);
}

void unblockAllSignals() {
    sigset_t set;
    sigemptyset(&set);
    pthread_sigmask(SIG_SETMASK, &set, nullptr);
}

OpenSignals::OpenSignals() {
    const sigset_t set = waitedForSignals();
    pthread_sigmask(SIG_UNBLOCK, &set, &saved_);
}

OpenSignals::~OpenSignals() {
    pthread_sigmask(SIG_SETMASK, &saved_, nullptr);
}

void letSignalsIn() {
    sigset_t pending;
    sigemptyset(&pending);
    sigpending(&pending); // a look is all that most takes need
    if (sigismember(&pending, SIGINT) == 1 || sigismember(&pending, SIGCHLD) == 1) {
        const OpenSignals open;
    }
}

void pauseMilliseconds(int milliseconds) {
    const timespec time{milliseconds / 1000, milliseconds % 1000 * 1000000L};
    const OpenSignals open;
    nanosleep(&time, nullptr);
}

void sleepSeconds(int seconds) {
    // Until a point in time, not for a duration: however many handlers run, the sleep ends at the same time.
    timespec until{};
    clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_sec += seconds;
    const OpenSignals open;
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
}

void deliverPending(int signo) {
    // Not sigsuspend(): a pending signal whose disposition is to be ignored would never end it.
    sigset_t one;
    sigset_t saved;
    sigemptyset(&one);
    sigaddset(&one, signo);
    pthread_sigmask(SIG_UNBLOCK, &one, &saved);
    pthread_sigmask(SIG_SETMASK, &saved, nullptr);
}

#include "libcommon/src/network_wait.h"

#include "libcommon/src/wait_mask.h"

#include <libcommon/clock.h>
#include <libcommon/interrupt.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <sys/signalfd.h>
#include <unistd.h>
#include <vector>

namespace network {

namespace {

constexpr int defaultTimeoutSeconds = 10;
constexpr std::int64_t microsecondsPerSecond = 1'000'000;

sigset_t setOf(std::initializer_list<int> signals) {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : signals)
        sigaddset(&set, signal);
    return set;
}

bool hasHandler(int signal) {
    struct sigaction action = {};
    if (sigaction(signal, nullptr, &action) != 0)
        return false;
    // SIG_DFL and SIG_IGN are in the same field as a handler of either kind.
    return action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN;
}

bool isPending(int signal) {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, signal) == 1;
}

timespec timeUntil(std::int64_t when) {
    const std::int64_t left = std::max<std::int64_t>(0, when - gettimeusec());
    return {.tv_sec = static_cast<time_t>(left / microsecondsPerSecond),
            .tv_nsec = static_cast<long>(left % microsecondsPerSecond) * 1000};
}

// ppoll delivers no signal when a descriptor is ready at once: without this, a peer that sends without pause would keep
// SIGINT and SIGCHLD out.
void letPendingSignalsIn() {
    const sigset_t opened = setOf({SIGINT, SIGCHLD});
    sigset_t saved;
    pthread_sigmask(SIG_UNBLOCK, &opened, &saved);
    pthread_sigmask(SIG_SETMASK, &saved, nullptr);
}

} // namespace

int timeoutSeconds(int timeout) {
    return timeout > 0 ? timeout : defaultTimeoutSeconds;
}

std::int64_t deadlineAfter(int timeout) {
    return gettimeusec() + timeoutSeconds(timeout) * microsecondsPerSecond;
}

NetworkOperation::NetworkOperation(std::int64_t deadline)
    : deadline_(deadline), pipeSignalWasPending_(isPending(SIGPIPE)), onMainThread_(local::onMainThread()) {
    const int savedError = errno;
    sigset_t blocked = setOf({SIGPIPE});
    const bool watched = hasHandler(SIGUSR1);
    if (watched)
        sigaddset(&blocked, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &blocked, &savedMask_);
    if (watched) {
        const sigset_t interruption = setOf({SIGUSR1});
        signalDescriptor_ = signalfd(-1, &interruption, SFD_CLOEXEC | SFD_NONBLOCK);
        setupError_ = signalDescriptor_ < 0 ? errno : 0;
    }
    errno = savedError;
}

NetworkOperation::~NetworkOperation() {
    const int savedError = errno;
    if (signalDescriptor_ >= 0)
        close(signalDescriptor_);
    if (!pipeSignalWasPending_ && isPending(SIGPIPE)) {
        const sigset_t pipeSignal = setOf({SIGPIPE});
        const timespec now = {};
        sigtimedwait(&pipeSignal, nullptr, &now);
    }
    pthread_sigmask(SIG_SETMASK, &savedMask_, nullptr);
    errno = savedError;
}

WaitEnd NetworkOperation::takeInterruption() {
    const sigset_t interruption = setOf({SIGUSR1});
    pthread_sigmask(SIG_UNBLOCK, &interruption, nullptr); // the handler runs here
    pthread_sigmask(SIG_BLOCK, &interruption, nullptr);
    setInterrupted();
    errno = EINTR;
    return WaitEnd::Interrupted;
}

WaitEnd NetworkOperation::wait(std::span<pollfd> descriptors, std::int64_t until) {
    if (setupError_ != 0) {
        errno = setupError_;
        return WaitEnd::Failed;
    }
    std::vector<pollfd> polled(descriptors.begin(), descriptors.end());
    polled.push_back({.fd = signalDescriptor_, .events = POLLIN, .revents = 0});
    const sigset_t mask = local::waitMask(onMainThread_);
    for (;;) {
        if (isInterrupted()) {
            errno = EINTR;
            return WaitEnd::Interrupted;
        }
        const timespec timeout = timeUntil(std::min(until, deadline_));
        const int ready = ppoll(polled.data(), polled.size(), &timeout, &mask);
        if (ready < 0 && errno == EINTR)
            continue; // some other signal's handler ran: the rest of the time still holds
        if (ready < 0)
            return WaitEnd::Failed;
        if (polled.back().revents != 0)
            return takeInterruption();
        if (onMainThread_ && ready > 0)
            letPendingSignalsIn();
        if (ready == 0 || gettimeusec() >= deadline_) {
            errno = ETIMEDOUT;
            return WaitEnd::TimeOver;
        }
        std::copy_n(polled.begin(), descriptors.size(), descriptors.begin());
        return WaitEnd::Ready;
    }
}

bool NetworkOperation::waitFor(int descriptor, short events) {
    if (descriptor < 0) { // poll would ignore it and wait for the whole time
        errno = EBADF;
        return false;
    }
    pollfd descriptors[] = {{.fd = descriptor, .events = events, .revents = 0}};
    return wait(descriptors, deadline_) == WaitEnd::Ready;
}

} // namespace network

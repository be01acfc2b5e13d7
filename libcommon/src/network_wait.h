// Waiting for the network: the one place where the library's network half blocks.
//
// A NetworkOperation lives as long as one public call (a download, a connect, a header, a write) and carries
// the data that its waits share: the deadline of the whole call, and how signals are handled.
//
// - SIGUSR1 with a handler installed ends the operation. The signal stays blocked for the operation's life,
//   so that it can't slip in between a test and a wait, and a signalfd in the poll set tells that it came.
//   The signalfd is never read: the handler itself runs, inside the wait. Ignored or at its default, SIGUSR1
//   is left alone.
// - On the main thread each wait lets SIGINT and SIGCHLD in, atomically; a handler that returns ends nothing.
// - SIGPIPE is never delivered: a closed peer is reported by errno.
//
// One thread; operations of one thread don't overlap. Errors come as errno.
#pragma once

#include <csignal>
#include <cstdint>
#include <poll.h>
#include <span>

namespace network {

// A caller's timeout in seconds: 0 or less means 10.
int timeoutSeconds(int timeout);

// That many seconds from now, as a time of gettimeusec().
std::int64_t deadlineAfter(int timeout);

enum class WaitEnd {
    Ready,       // at least one descriptor has something to tell
    TimeOver,    // errno ETIMEDOUT
    Interrupted, // errno EINTR, isInterrupted() is true
    Failed,      // errno tells
};

class NetworkOperation {
public:
    // `deadline`: a time of gettimeusec() at which every wait ends. Keeps errno.
    explicit NetworkOperation(std::int64_t deadline);
    ~NetworkOperation();
    NetworkOperation(const NetworkOperation&) = delete;
    NetworkOperation& operator=(const NetworkOperation&) = delete;

    std::int64_t deadline() const { return deadline_; }

    // Waits until one of `descriptors` is ready, at most until the earlier of `until` and the deadline. Past
    // the deadline the answer is TimeOver even when something is ready, so that a peer that sends without end
    // can't stretch the operation. The result is in `revents` of `descriptors`.
    WaitEnd wait(std::span<pollfd> descriptors, std::int64_t until);

    // The same for one descriptor and the whole operation: true, or false with errno.
    bool waitFor(int descriptor, short events);

    // Without waiting: whether the operation has to end. An operation asks before it begins anything.
    bool interrupted() { return wait({}, 0) == WaitEnd::Interrupted; }

private:
    WaitEnd takeInterruption();

    std::int64_t deadline_;
    sigset_t savedMask_;
    int signalDescriptor_ = -1; // -1: SIGUSR1 is left alone
    int setupError_ = 0;        // errno of a signalfd that could not be made; every wait fails with it
    bool pipeSignalWasPending_;
    bool onMainThread_;
};

} // namespace network

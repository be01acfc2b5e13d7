#include "libcommon/src/network_wait.h"

#include "libcommon/src/network_fixture.h"

#include <libcommon/clock.h>
#include <libcommon/interrupt.h>

#include <array>
#include <cerrno>
#include <unistd.h>

using network::NetworkOperation;
using network::WaitEnd;

namespace {

constexpr std::int64_t second = 1'000'000;
constexpr std::int64_t shortTime = 50'000; // microseconds

class Pipe {
public:
    Pipe() { EXPECT_EQ(pipe(ends_.data()), 0); }
    ~Pipe() {
        closeReader();
        close(ends_[1]);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    int reader() const { return ends_[0]; }
    int writer() const { return ends_[1]; }
    void closeReader() {
        if (ends_[0] >= 0)
            close(ends_[0]);
        ends_[0] = -1;
    }

private:
    std::array<int, 2> ends_ = {};
};

using NetworkWait = NetworkTest;

TEST_F(NetworkWait, AReadyDescriptorEndsTheWaitWithItsEvents) {
    const Pipe pipe;
    ASSERT_EQ(write(pipe.writer(), "x", 1), 1);
    NetworkOperation operation(gettimeusec() + second);
    std::array<pollfd, 2> polled = {{{.fd = pipe.reader(), .events = POLLIN, .revents = 0},
                                     {.fd = pipe.writer(), .events = POLLOUT, .revents = 0}}};
    EXPECT_EQ(operation.wait(polled, operation.deadline()), WaitEnd::Ready);
    EXPECT_EQ(polled[0].revents, POLLIN);
    EXPECT_EQ(polled[1].revents, POLLOUT);
}

TEST_F(NetworkWait, TheDeadlineEndsTheWait) {
    const Pipe pipe;
    const Stopwatch time;
    NetworkOperation operation(gettimeusec() + shortTime);
    EXPECT_FALSE(operation.waitFor(pipe.reader(), POLLIN));
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_GE(time.milliseconds(), 49);
}

TEST_F(NetworkWait, AnEarlierLimitEndsOneWaitAndNotTheOperation) {
    const Pipe pipe;
    NetworkOperation operation(gettimeusec() + 60 * second);
    std::array<pollfd, 1> polled = {{{.fd = pipe.reader(), .events = POLLIN, .revents = 0}}};
    EXPECT_EQ(operation.wait(polled, gettimeusec() + shortTime), WaitEnd::TimeOver);
    ASSERT_EQ(write(pipe.writer(), "x", 1), 1);
    EXPECT_TRUE(operation.waitFor(pipe.reader(), POLLIN));
}

TEST_F(NetworkWait, PastTheDeadlineNothingIsReadyAnyMore) {
    const Pipe pipe;
    NetworkOperation operation(gettimeusec() - 1);
    EXPECT_FALSE(operation.waitFor(pipe.writer(), POLLOUT));
    EXPECT_EQ(errno, ETIMEDOUT);
}

TEST_F(NetworkWait, TimeoutsAreSecondsAndZeroOrLessMeansTen) {
    const auto within = [](std::int64_t deadline, std::int64_t expected) {
        const std::int64_t left = deadline - gettimeusec();
        return left <= expected && left > expected - second;
    };
    EXPECT_TRUE(within(network::deadlineAfter(3), 3 * second));
    EXPECT_TRUE(within(network::deadlineAfter(0), 10 * second));
    EXPECT_TRUE(within(network::deadlineAfter(-5), 10 * second));
    EXPECT_TRUE(within(network::deadlineAfter(INT32_MAX), INT32_MAX * second));
}

TEST_F(NetworkWait, BlockedChildSignalIsHandledDuringTheWaitAndDoesNotEndIt) {
    const HandlerCount children(SIGCHLD);
    blockSignal(SIGCHLD);
    raise(SIGCHLD);
    const Pipe pipe;
    const Stopwatch time;
    {
        NetworkOperation operation(gettimeusec() + shortTime);
        EXPECT_EQ(children.value(), 0);
        EXPECT_FALSE(operation.waitFor(pipe.reader(), POLLIN));
        EXPECT_EQ(errno, ETIMEDOUT);
        EXPECT_EQ(children.value(), 1);
    }
    EXPECT_GE(time.milliseconds(), 49);
    EXPECT_TRUE(isBlocked(SIGCHLD));
    EXPECT_FALSE(isInterrupted());
}

TEST_F(NetworkWait, ChildSignalThatComesDuringTheWaitLeavesTheRestOfTheTime) {
    const HandlerCount children(SIGCHLD);
    blockSignal(SIGCHLD);
    const Pipe pipe;
    SignalWhen child(SIGCHLD, [] {});
    SignalWhen data(SIGCHLD, [&] { EXPECT_EQ(write(pipe.writer(), "x", 1), 1); });
    NetworkOperation operation(gettimeusec() + 10 * second);
    EXPECT_TRUE(operation.waitFor(pipe.reader(), POLLIN));
    EXPECT_FALSE(isInterrupted());
}

TEST_F(NetworkWait, BlockedInterruptSignalIsHandledDuringTheWait) {
    const HandlerCount interrupts(SIGINT);
    blockSignal(SIGINT);
    raise(SIGINT);
    const Pipe pipe;
    NetworkOperation operation(gettimeusec() + shortTime);
    EXPECT_FALSE(operation.waitFor(pipe.reader(), POLLIN));
    EXPECT_EQ(interrupts.value(), 1);
}

TEST_F(NetworkWait, APeerThatIsAlwaysReadyDoesNotKeepSignalsOut) {
    const HandlerCount children(SIGCHLD);
    blockSignal(SIGCHLD);
    raise(SIGCHLD);
    const Pipe pipe;
    NetworkOperation operation(gettimeusec() + second);
    EXPECT_TRUE(operation.waitFor(pipe.writer(), POLLOUT));
    EXPECT_EQ(children.value(), 1);
    EXPECT_TRUE(isBlocked(SIGCHLD));
}

TEST_F(NetworkWait, PendingBlockedInterruptionEndsTheFirstWaitAtOnce) {
    const HandlerCount interruptions(SIGUSR1);
    blockSignal(SIGUSR1);
    raise(SIGUSR1);
    const Pipe pipe;
    const Stopwatch time;
    {
        NetworkOperation operation(gettimeusec() + 10 * second);
        EXPECT_EQ(interruptions.value(), 0);
        EXPECT_FALSE(operation.waitFor(pipe.writer(), POLLOUT));
        EXPECT_EQ(errno, EINTR);
        EXPECT_EQ(interruptions.value(), 1);
        EXPECT_TRUE(isInterrupted());
    }
    EXPECT_LT(time.milliseconds(), 1000);
    EXPECT_TRUE(isBlocked(SIGUSR1));
    EXPECT_FALSE(isPending(SIGUSR1));
}

TEST_F(NetworkWait, InterruptionOfACallerThatDoesNotBlockItEndsTheWait) {
    const HandlerCount interruptions(SIGUSR1);
    const Pipe pipe;
    SignalWhen interruption(SIGUSR1, [] {});
    {
        NetworkOperation operation(gettimeusec() + 10 * second);
        EXPECT_TRUE(isBlocked(SIGUSR1));
        // It may have come before the operation began, and was the caller's then.
        if (interruptions.value() == 0) {
            EXPECT_FALSE(operation.waitFor(pipe.reader(), POLLIN));
            EXPECT_EQ(errno, EINTR);
            EXPECT_TRUE(isInterrupted());
        }
    }
    EXPECT_EQ(interruptions.value(), 1);
    EXPECT_FALSE(isBlocked(SIGUSR1));
}

TEST_F(NetworkWait, IgnoredInterruptionSignalIsLeftAlone) {
    std::signal(SIGUSR1, SIG_IGN);
    const Pipe pipe;
    SignalWhen signal(SIGUSR1, [] {});
    NetworkOperation operation(gettimeusec() + shortTime);
    EXPECT_FALSE(isBlocked(SIGUSR1));
    EXPECT_FALSE(operation.waitFor(pipe.reader(), POLLIN));
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_FALSE(isInterrupted());
}

TEST_F(NetworkWait, BlockedInterruptionSignalAtItsDefaultStaysPending) {
    std::signal(SIGUSR1, SIG_DFL);
    blockSignal(SIGUSR1);
    raise(SIGUSR1);
    const Pipe pipe;
    {
        NetworkOperation operation(gettimeusec() + shortTime);
        EXPECT_FALSE(operation.waitFor(pipe.reader(), POLLIN));
        EXPECT_EQ(errno, ETIMEDOUT);
    }
    EXPECT_TRUE(isPending(SIGUSR1));
    std::signal(SIGUSR1, SIG_IGN); // discards it
}

TEST_F(NetworkWait, TheInterruptionFlagEndsEveryWaitUntilItIsCleared) {
    const Pipe pipe;
    setInterrupted();
    {
        NetworkOperation operation(gettimeusec() + second);
        EXPECT_TRUE(operation.interrupted());
        EXPECT_FALSE(operation.waitFor(pipe.writer(), POLLOUT));
        EXPECT_EQ(errno, EINTR);
    }
    clearInterrupted();
    NetworkOperation operation(gettimeusec() + second);
    EXPECT_FALSE(operation.interrupted());
    EXPECT_TRUE(operation.waitFor(pipe.writer(), POLLOUT));
}

TEST_F(NetworkWait, OtherThreadsKeepTheirMask) {
    const HandlerCount children(SIGCHLD);
    blockSignal(SIGCHLD);
    raise(SIGCHLD);
    const Pipe pipe;
    std::thread([&pipe] {
        NetworkOperation operation(gettimeusec() + shortTime);
        EXPECT_FALSE(operation.waitFor(pipe.reader(), POLLIN));
    }).join();
    EXPECT_EQ(children.value(), 0);
    EXPECT_TRUE(isPending(SIGCHLD));
}

TEST_F(NetworkWait, AWriteToAClosedPeerIsNoSignal) {
    Pipe pipe;
    pipe.closeReader();
    {
        NetworkOperation operation(gettimeusec() + second);
        EXPECT_EQ(write(pipe.writer(), "x", 1), -1);
        EXPECT_EQ(errno, EPIPE);
    }
    EXPECT_FALSE(isPending(SIGPIPE)); // and its default would have ended this process
}

TEST_F(NetworkWait, AnOperationKeepsNoDescriptorAndNoMask) {
    const HandlerCount interruptions(SIGUSR1);
    const auto before = openDescriptors();
    for (int i = 0; i < 3; ++i)
        NetworkOperation operation(gettimeusec());
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_FALSE(isBlocked(SIGUSR1));
    EXPECT_FALSE(isBlocked(SIGPIPE));
}

TEST_F(NetworkWait, TheBeginningOfAnOperationKeepsErrno) {
    const HandlerCount interruptions(SIGUSR1);
    errno = ENOTTY;
    { NetworkOperation operation(gettimeusec()); }
    EXPECT_EQ(errno, ENOTTY);
}

} // namespace

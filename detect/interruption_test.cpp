#include "detect/interruption.h"

#include "tests/fakes/fake_libcommon.h"

#include <cerrno>
#include <csignal>
#include <ctime>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

namespace {

using detect::InterruptionSignal;
using detect::isDetectionInterrupted;

struct sigaction dispositionOfUsr1() {
    struct sigaction action {};
    sigaction(SIGUSR1, nullptr, &action);
    return action;
}

bool isBlocked(int signo) {
    sigset_t mask;
    sigprocmask(SIG_BLOCK, nullptr, &mask);
    return sigismember(&mask, signo) == 1;
}

bool isPending(int signo) {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, signo) == 1;
}

class DetectionInterruption : public testing::Test {
protected:
    DetectionInterruption() {
        fake::reset();
        std::signal(SIGUSR1, SIG_IGN);
    }
};

TEST_F(DetectionInterruption, WithoutASignalThereIsNoInterruption) {
    const InterruptionSignal signal;
    EXPECT_FALSE(isDetectionInterrupted());
}

TEST_F(DetectionInterruption, SignalHasAHandlerThatEndsSystemCallsAndIsBlockedMeanwhile) {
    const InterruptionSignal signal;
    EXPECT_EQ(dispositionOfUsr1().sa_handler, detect::autoDetectSignalHandler);
    EXPECT_FALSE(dispositionOfUsr1().sa_flags & SA_RESTART);
    EXPECT_TRUE(isBlocked(SIGUSR1));
}

TEST_F(DetectionInterruption, SignalIsIgnoredAndLetInAfterwards) {
    { const InterruptionSignal signal; }
    EXPECT_EQ(dispositionOfUsr1().sa_handler, SIG_IGN);
    EXPECT_FALSE(isBlocked(SIGUSR1));
}

TEST_F(DetectionInterruption, CallersMaskComesBack) {
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, SIGUSR1);
    sigaddset(&mask, SIGCHLD);
    sigprocmask(SIG_BLOCK, &mask, nullptr);
    { const InterruptionSignal signal; }
    EXPECT_TRUE(isBlocked(SIGUSR1));
    EXPECT_TRUE(isBlocked(SIGCHLD));
    sigprocmask(SIG_UNBLOCK, &mask, nullptr);
}

TEST_F(DetectionInterruption, PendingSignalCountsAtTheTestAndStaysUntilTheNextDetection) {
    {
        const InterruptionSignal signal;
        kill(getpid(), SIGUSR1);
        EXPECT_TRUE(isPending(SIGUSR1));
        EXPECT_TRUE(isDetectionInterrupted());
        EXPECT_FALSE(isPending(SIGUSR1));
        EXPECT_TRUE(isDetectionInterrupted()) << "the answer stays";
    }
    const InterruptionSignal signal;
    EXPECT_FALSE(isDetectionInterrupted());
}

TEST_F(DetectionInterruption, LibraryFlagIsCleared) {
    const InterruptionSignal signal;
    fake::interrupted = true;
    EXPECT_TRUE(isDetectionInterrupted());
    EXPECT_FALSE(fake::interrupted);
    EXPECT_FALSE(isDetectionInterrupted());
}

TEST_F(DetectionInterruption, BothFlagsTogetherClearTheLibrarys) {
    const InterruptionSignal signal;
    fake::interrupted = true;
    detect::autoDetectSignalHandler(SIGUSR1);
    EXPECT_TRUE(isDetectionInterrupted());
    EXPECT_FALSE(fake::interrupted);
    EXPECT_TRUE(isDetectionInterrupted());
}

TEST_F(DetectionInterruption, EarlierSignalIsDiscarded) {
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, SIGUSR1);
    sigprocmask(SIG_BLOCK, &mask, nullptr); // a blocked signal is kept even while it is ignored
    kill(getpid(), SIGUSR1);
    fake::interrupted = true;
    detect::autoDetectSignalHandler(SIGUSR1);
    {
        const InterruptionSignal signal;
        EXPECT_FALSE(isDetectionInterrupted());
    }
    sigprocmask(SIG_UNBLOCK, &mask, nullptr);
}

TEST_F(DetectionInterruption, UntestedSignalIsGoneAfterwards) {
    {
        const InterruptionSignal signal;
        kill(getpid(), SIGUSR1);
    }
    EXPECT_FALSE(isPending(SIGUSR1));
    const InterruptionSignal signal;
    EXPECT_FALSE(isDetectionInterrupted());
}

TEST_F(DetectionInterruption, OtherSignalsAreLoggedAndChangeNothing) {
    const InterruptionSignal signal;
    detect::autoDetectSignalHandler(SIGUSR2);
    EXPECT_THAT(fake::log, testing::ElementsAre(fake::LogLine{
                               3, "autoDetectSignalHandler() got sprawling signal (signo=12)"}));
    EXPECT_FALSE(isDetectionInterrupted());
}

TEST_F(DetectionInterruption, PendingSignalEndsTheNextWaitAtOnce) {
    const InterruptionSignal signal;
    kill(getpid(), SIGUSR1);
    sigset_t open;
    sigprocmask(SIG_BLOCK, nullptr, &open);
    sigdelset(&open, SIGUSR1);
    const timespec longTime{30, 0};
    EXPECT_EQ(ppoll(nullptr, 0, &longTime, &open), -1);
    EXPECT_EQ(errno, EINTR);
    EXPECT_TRUE(isDetectionInterrupted());
}

} // namespace

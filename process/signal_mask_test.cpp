#include "process/signal_mask.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>
#include <vector>

namespace {

// The clock of sleepSeconds(), in place of the C library's: every sleep is remembered, the first
// `interruptions` of them end early.
timespec clockNow{100, 5};
int interruptions = 0;
std::vector<timespec> sleeps;

volatile std::sig_atomic_t handled = 0;

void count(int) {
    handled = handled + 1;
}

std::vector<int> blocked() {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    std::vector<int> list;
    for (int signo = 1; signo < 32; ++signo)
        if (sigismember(&mask, signo) == 1)
            list.push_back(signo);
    return list;
}

struct SignalMask : testing::Test {
    SignalMask() {
        unblockAllSignals();
        for (const int signo : {SIGINT, SIGCHLD, SIGUSR1})
            std::signal(signo, count);
        handled = 0;
    }
};

} // namespace

extern "C" int clock_gettime(clockid_t, timespec* now) noexcept {
    *now = clockNow;
    return 0;
}

extern "C" int clock_nanosleep(clockid_t clock, int flags, const timespec* until, timespec*) {
    EXPECT_EQ(clock, CLOCK_MONOTONIC);
    EXPECT_EQ(flags, TIMER_ABSTIME);
    EXPECT_TRUE(blocked().empty());
    sleeps.push_back(*until);
    return interruptions-- > 0 ? EINTR : 0;
}

TEST_F(SignalMask, WorkKeepsSigintAndSigchldOutAndNothingElse) {
    blockSignalsWhileWorking();
    EXPECT_EQ(blocked(), (std::vector<int>{SIGINT, SIGCHLD}));
    kill(getpid(), SIGINT);
    kill(getpid(), SIGCHLD);
    EXPECT_EQ(handled, 0);
}

TEST_F(SignalMask, WhatIsPendingIsDeliveredWhenSignalsAreLetIn) {
    blockSignalsWhileWorking();
    kill(getpid(), SIGINT);
    kill(getpid(), SIGCHLD);
    {
        const OpenSignals open;
        EXPECT_EQ(handled, 2);
        EXPECT_TRUE(blocked().empty());
    }
    EXPECT_EQ(blocked(), (std::vector<int>{SIGINT, SIGCHLD}));
}

TEST_F(SignalMask, PendingSignalsCanBeLetInWithoutAWait) {
    blockSignalsWhileWorking();
    kill(getpid(), SIGINT);
    letSignalsIn();
    EXPECT_EQ(handled, 1);
    EXPECT_EQ(blocked(), (std::vector<int>{SIGINT, SIGCHLD}));
    letSignalsIn();
    EXPECT_EQ(handled, 1);
}

TEST_F(SignalMask, LettingSignalsInLeavesTheOthersAsTheyAre) {
    sigset_t user;
    sigemptyset(&user);
    sigaddset(&user, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &user, nullptr);
    blockSignalsWhileWorking();
    {
        const OpenSignals open;
        EXPECT_EQ(blocked(), (std::vector<int>{SIGUSR1}));
    }
    EXPECT_EQ(blocked(), (std::vector<int>{SIGINT, SIGUSR1, SIGCHLD}));
}

TEST_F(SignalMask, WaitsMayNest) {
    blockSignalsWhileWorking();
    {
        const OpenSignals outer;
        { const OpenSignals inner; }
        EXPECT_TRUE(blocked().empty());
    }
    EXPECT_EQ(blocked(), (std::vector<int>{SIGINT, SIGCHLD}));
}

TEST_F(SignalMask, AnAuxiliaryThreadTakesNoSignalAtAll) {
    blockAllSignals();
    const std::vector<int> list = blocked();
    for (const int signo : {SIGINT, SIGSEGV, SIGCHLD, SIGUSR1, SIGTERM, SIGHUP, SIGPIPE})
        EXPECT_NE(std::find(list.begin(), list.end(), signo), list.end()) << signo;
    unblockAllSignals();
    EXPECT_TRUE(blocked().empty());
}

TEST_F(SignalMask, SleepSecondsSleepsToItsEndWhateverHandlersRunMeanwhile) {
    interruptions = 3;
    blockSignalsWhileWorking();
    sleepSeconds(2);
    ASSERT_EQ(sleeps.size(), 4U);
    for (const timespec& until : sleeps) {
        EXPECT_EQ(until.tv_sec, 102);
        EXPECT_EQ(until.tv_nsec, 5);
    }
    EXPECT_EQ(blocked(), (std::vector<int>{SIGINT, SIGCHLD}));
}

TEST_F(SignalMask, DeliverPendingRunsTheHandlerOfThatSignalOnly) {
    sigset_t user;
    sigemptyset(&user);
    sigaddset(&user, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &user, nullptr);
    blockSignalsWhileWorking();
    kill(getpid(), SIGUSR1);
    kill(getpid(), SIGCHLD);
    deliverPending(SIGUSR1);
    EXPECT_EQ(handled, 1);
    EXPECT_EQ(blocked(), (std::vector<int>{SIGINT, SIGUSR1, SIGCHLD}));
    deliverPending(SIGUSR1);
    EXPECT_EQ(handled, 1);
}

TEST_F(SignalMask, DeliverPendingReturnsWhenThePendingSignalIsIgnored) {
    blockSignalsWhileWorking();
    std::signal(SIGCHLD, SIG_DFL);
    kill(getpid(), SIGCHLD);
    deliverPending(SIGCHLD);
    EXPECT_EQ(handled, 0);
}

#include "events/timers.h"

#include "tests/fakes/fake_libcommon.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <functional>
#include <gtest/gtest.h>
#include <pthread.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

// Replaces the C library's nanosleep in this program: does not sleep, records the requested times, returns what the
// test says. The timer thread calls it; the test reads `naps` when that thread is done.
std::vector<timespec> naps;
std::function<int(const timespec&, timespec*)> onNanosleep;
std::atomic<bool> sawOpenSignals;

struct Timers : testing::Test {
    Timers() {
        fake::reset();
        timers::setNextId(65536);
        naps.clear();
        onNanosleep = nullptr;
        sawOpenSignals = false;
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        std::fflush(stdout);
        realOutput_ = dup(STDOUT_FILENO);
        dup2(ends[1], STDOUT_FILENO);
        close(ends[1]);
        std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
        output_ = fdopen(ends[0], "r");
    }
    ~Timers() override {
        std::fflush(stdout);
        dup2(realOutput_, STDOUT_FILENO);
        close(realOutput_);
        std::fclose(output_);
    }

    // The lines on standard output up to `last`; waits for them.
    Lines linesUntil(const std::string& last) {
        Lines lines;
        std::array<char, 256> line{};
        while (std::fgets(line.data(), line.size(), output_) != nullptr) {
            lines.emplace_back(line.data());
            if (lines.back() == last)
                break;
        }
        return lines;
    }

    // Everything that the timer thread printed. The event that it sent can be read afterwards: reading the log
    // takes the lock under which the event was recorded.
    Lines untilSent() {
        Lines lines = linesUntil(">>> Timer thread: sendEvent done\n");
        EXPECT_FALSE(fake::logged(3, "setTimeout() was called with an invalid timeout"));
        return lines;
    }

    void untilRefused() {
        while (!fake::logged(3, "setTimeout() was called with an invalid timeout"))
            std::this_thread::yield();
    }

private:
    int realOutput_ = -1;
    FILE* output_ = nullptr;
};

} // namespace

extern "C" int nanosleep(const timespec* time, timespec* rest) {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    for (const int signo : {SIGINT, SIGCHLD, SIGUSR1, SIGTERM})
        if (sigismember(&mask, signo) == 0)
            sawOpenSignals = true;
    const timespec asked = *time;
    naps.push_back(asked);
    if (asked.tv_sec < 0 || asked.tv_nsec < 0) {
        errno = EINVAL;
        return -1;
    }
    return onNanosleep ? onNanosleep(asked, rest) : 0;
}

TEST_F(Timers, ThePartBelowASecondIsMultipliedByAThousand) {
    struct Row {
        std::int64_t milliseconds;
        std::int64_t seconds;
        long nanoseconds;
    };
    for (const Row& row :
         {Row{0, 0, 0}, Row{1, 0, 1000}, Row{99, 0, 99000}, Row{100, 0, 100000}, Row{999, 0, 999000},
          Row{1000, 1, 0}, Row{2500, 2, 500000}, Row{4000, 4, 0}, Row{10000, 10, 0}, Row{-1500, -1, -500000},
          Row{2'147'483'647'999, 2'147'483'647, 999000}}) {
        const timers::TimerRequest request = timers::makeRequest(row.milliseconds, 7);
        EXPECT_EQ(request.seconds, row.seconds) << row.milliseconds;
        EXPECT_EQ(request.nanoseconds, row.nanoseconds) << row.milliseconds;
        EXPECT_EQ(request.id, 7);
    }
}

TEST_F(Timers, ATimerSleepsItsTimeThenSendsItsId) {
    const int id = setTimeout(2500);
    EXPECT_EQ(id, 65536);
    EXPECT_EQ(untilSent(),
              (Lines{">>> setTimeout(2500, 65536)\n", ">>> Timer thread: timeout=2s 500000ns\n",
                     ">>> Timer thread: nanosleep(); timeout=2s 500000ns\n",
                     ">>> Timer thread: timeout! sending event\n", ">>> Timer thread: sendEvent done\n"}));
    ASSERT_EQ(fake::sentEvents.size(), 1U);
    EXPECT_EQ(fake::sentEvents[0].id, EID_TIMEOUT);
    EXPECT_EQ(fake::sentEvents[0].value1, 65536);
    ASSERT_EQ(naps.size(), 1U);
    EXPECT_EQ(naps[0].tv_sec, 2);
    EXPECT_EQ(naps[0].tv_nsec, 500000);
    EXPECT_FALSE(sawOpenSignals);
}

TEST_F(Timers, ZeroMillisecondsAreNotSlept) {
    setTimeout(0);
    EXPECT_EQ(untilSent(),
              (Lines{">>> setTimeout(0, 65536)\n", ">>> Timer thread: timeout=0s 0ns\n",
                     ">>> Timer thread: timeout! sending event\n", ">>> Timer thread: sendEvent done\n"}));
    EXPECT_TRUE(naps.empty());
    EXPECT_EQ(fake::sentEvents.size(), 1U);
}

TEST_F(Timers, ARestUnderATenthOfAMillisecondIsNotSlept) {
    setTimeout(99);
    untilSent();
    EXPECT_TRUE(naps.empty());
    setTimeout(100);
    untilSent();
    ASSERT_EQ(naps.size(), 1U);
    EXPECT_EQ(naps[0].tv_nsec, 100000);
}

TEST_F(Timers, TenSecondsAreTenSeconds) {
    setTimeout(10000);
    untilSent();
    ASSERT_EQ(naps.size(), 1U);
    EXPECT_EQ(naps[0].tv_sec, 10);
    EXPECT_EQ(naps[0].tv_nsec, 0);
}

TEST_F(Timers, AnInterruptedSleepContinuesWithTheRest) {
    onNanosleep = [](const timespec& asked, timespec* rest) {
        if (asked.tv_sec < 3)
            return 0;
        *rest = {asked.tv_sec - 2, 250000000};
        errno = EINTR;
        return -1;
    };
    setTimeout(4000);
    EXPECT_EQ(untilSent(),
              (Lines{">>> setTimeout(4000, 65536)\n", ">>> Timer thread: timeout=4s 0ns\n",
                     ">>> Timer thread: nanosleep(); timeout=4s 0ns\n",
                     ">>> Timer thread: nanosleep(); timeout=2s 250000000ns\n",
                     ">>> Timer thread: timeout! sending event\n", ">>> Timer thread: sendEvent done\n"}));
}

TEST_F(Timers, AnInterruptedSleepWithAlmostNoRestIsOver) {
    onNanosleep = [](const timespec&, timespec* rest) {
        *rest = {0, 99999};
        errno = EINTR;
        return -1;
    };
    setTimeout(1000);
    untilSent();
    EXPECT_EQ(naps.size(), 1U);
    EXPECT_EQ(fake::sentEvents.size(), 1U);
}

TEST_F(Timers, ANegativeTimeIsRefusedAndSendsNothing) {
    EXPECT_EQ(setTimeout(-1500), 65536);
    untilRefused();
    EXPECT_TRUE(fake::sentEvents.empty());
    ASSERT_EQ(naps.size(), 1U);
    EXPECT_EQ(naps[0].tv_sec, -1);
}

TEST_F(Timers, TheResultOfSendingIsNotExamined) {
    fake::sendEventResult = -1;
    setTimeout(0);
    EXPECT_EQ(untilSent().back(), ">>> Timer thread: sendEvent done\n");
    EXPECT_TRUE(fake::log.empty());
}

TEST_F(Timers, IdsCountUpAndRunThroughTheNegativeNumbersButNeverZero) {
    EXPECT_EQ(setTimeout(0), 65536);
    EXPECT_EQ(setTimeout(0), 65537);
    EXPECT_EQ(setTimeout(0), 65538);
    timers::setNextId(INT_MAX);
    EXPECT_EQ(setTimeout(0), INT_MAX);
    EXPECT_EQ(setTimeout(0), INT_MIN);
    EXPECT_EQ(setTimeout(0), INT_MIN + 1);
    timers::setNextId(-1);
    EXPECT_EQ(setTimeout(0), -1);
    EXPECT_EQ(setTimeout(0), 65536);
    for (int i = 0; i < 8; ++i)
        untilSent();
}

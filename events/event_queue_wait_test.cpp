// The blocking take: its sleep, its wake-up, and the signals that it lets in.
#include "events/event_queue.h"

#include "events/taker_probe.h"
#include "process/signal_mask.h"
#include "tests/fakes/fake_barrier_table.h"
#include "tests/support/child_run.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <pthread.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

struct EventQueueWait : testing::Test {
    EventQueueWait() {
        fake::reset();
        flushEventQueue();
        for (int id = 0; id < 14; ++id)
            setQueueLimit(id, defaultQueueLimit);
    }
};

Event event(int id, int value1) {
    Event e{};
    e.id = id;
    e.value1 = value1;
    return e;
}

// Empties the queue; returns value 1 of each event, oldest first.
std::vector<int> drain() {
    std::vector<int> values;
    Event out{};
    while (peekNextEvent(&out, selection(ACTION_TAKE, EID_OTHER)) == 0)
        values.push_back(out.value1);
    return values;
}

void nobodyToDisturb(const Event&) {}

} // namespace

#if defined(__SANITIZE_THREAD__)
// One test's handler ends the process, as the shutdown handler does.
extern "C" const char* __tsan_default_options() {
    return "report_signal_unsafe=0";
}
#endif

TEST_F(EventQueueWait, ABlockingTakeReturnsAtOnceWithWhatIsQueued) {
    pushEvent(event(EID_LOCK, 1));
    Event out{};
    EXPECT_EQ(getNextEvent(&out, take(EID_LOCK), SKIP_OTHERS), 0);
    EXPECT_EQ(out.value1, 1);
}

TEST_F(EventQueueWait, ABlockingTakeSleepsUntilAnEventItWantsIsDelivered) {
    std::thread handler([] {
        untilTakerSleeps();
        deliverEvent(event(EID_SELECT, 1), [](const Event&) { FAIL() << "the taker slept"; });
        untilTakerSleeps();
        deliverEvent(event(EID_LOCK, 2), [](const Event&) { FAIL() << "the taker slept"; });
    });
    Event out{};
    EXPECT_EQ(getNextEvent(&out, take(EID_LOCK), SKIP_OTHERS), 0);
    EXPECT_EQ(out.value1, 2);
    handler.join();
    EXPECT_EQ(drain(), (std::vector<int>{1}));
}

namespace {

volatile std::sig_atomic_t signalsTaken = 0;

// A child's exit and a shutdown are pending, as they are while the main thread works.
void raiseWhileWorking() {
    signalsTaken = 0;
    for (const int signo : {SIGINT, SIGCHLD})
        std::signal(signo, [](int) { signalsTaken = signalsTaken + 1; });
    blockSignalsWhileWorking();
    kill(getpid(), SIGINT);
    kill(getpid(), SIGCHLD);
}

} // namespace

TEST_F(EventQueueWait, EveryTakeLetsPendingSignalsInEvenWhenItFindsAnEventAtOnce) {
    pushEvent(event(EID_LOCK, 1));
    raiseWhileWorking();
    Event out{};
    EXPECT_EQ(getNextEvent(&out, take(EID_LOCK), SKIP_OTHERS), 0);
    EXPECT_EQ(signalsTaken, 2);
}

TEST_F(EventQueueWait, ATakeThatDoesNotWaitLetsPendingSignalsInToo) {
    raiseWhileWorking();
    Event out{};
    EXPECT_EQ(peekNextEvent(&out, take(EID_LOCK), SKIP_OTHERS), -1);
    EXPECT_EQ(signalsTaken, 2);
}

TEST_F(EventQueueWait, ABusyTakerIsReportedForAppendedAndForDroppedEvents) {
    static std::vector<int> reported;
    reported.clear();
    setQueueLimit(EID_BUTTON, 1);
    const auto report = [](const Event& e) { reported.push_back(e.value1); };
    deliverEvent(event(EID_BUTTON, 1), report);
    deliverEvent(event(EID_BUTTON, 2), report);
    EXPECT_EQ(reported, (std::vector<int>{1, 2}));
}

TEST_F(EventQueueWait, ABlockingTakeThatSkipsEverythingSleeps) {
    const ChildRun run = runInChild([] {
        pushEvent(event(EID_LOCK, 1));
        std::thread handler([] {
            untilTakerSleeps();
            deliverEvent(event(EID_SELECT, 1), nobodyToDisturb);
            untilTakerSleeps();
            _exit(7);
        });
        Event out{};
        getNextEvent(&out, SKIP_OTHERS);
    });
    EXPECT_TRUE(run.exitedWith(7)) << run.waitStatus;
}

TEST_F(EventQueueWait, NoWakeUpIsLostBetweenTwoThreads) {
    constexpr int rounds = 20000;
    static std::atomic<int> taken;
    taken = 0;
    std::thread handler([] {
        for (int i = 0; i < rounds; ++i) {
            deliverEvent(event(EID_TIMEOUT, i), nobodyToDisturb);
            while (i - taken > 200) // well below the queue's limit
                std::this_thread::yield();
        }
    });
    for (int i = 0; i < rounds; ++i) {
        Event out{};
        ASSERT_EQ(getNextEvent(&out, take(EID_TIMEOUT), SKIP_OTHERS), 0);
        ASSERT_EQ(out.value1, i);
        ++taken;
    }
    handler.join();
}

namespace {

std::atomic<int> signalsHandled;

void countSignal(int) {
    ++signalsHandled;
}

bool isBlocked(int signo) {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return sigismember(&mask, signo) == 1;
}

} // namespace

TEST_F(EventQueueWait, SignalsAreLetInAtTheStartOfATakeAndWhileItSleeps) {
    signalsHandled = 0;
    blockSignalsWhileWorking();
    std::signal(SIGCHLD, countSignal);
    kill(getpid(), SIGCHLD); // pending since before the take
    std::thread handler([] {
        blockAllSignals();
        while (signalsHandled < 1)
            std::this_thread::yield();
        untilTakerSleeps();
        kill(getpid(), SIGCHLD); // in the middle of the sleep
        while (signalsHandled < 2)
            std::this_thread::yield();
        deliverEvent(event(EID_LOCK, 1), nobodyToDisturb);
    });
    pushEvent(event(EID_SELECT, 1));
    Event out{};
    EXPECT_EQ(peekNextEvent(&out, take(EID_LOCK), SKIP_OTHERS), -1);
    EXPECT_EQ(getNextEvent(&out, take(EID_SELECT), SKIP_OTHERS), 0);
    EXPECT_EQ(signalsHandled, 1); // neither of them slept
    EXPECT_EQ(getNextEvent(&out, take(EID_LOCK), SKIP_OTHERS), 0);
    EXPECT_EQ(signalsHandled, 2);
    handler.join();
    kill(getpid(), SIGCHLD);
    EXPECT_EQ(signalsHandled, 2);
    EXPECT_TRUE(isBlocked(SIGCHLD));
    EXPECT_TRUE(isBlocked(SIGINT));
    std::signal(SIGCHLD, SIG_DFL);
    unblockAllSignals();
}

TEST_F(EventQueueWait, ASigintHandlerMayEndTheProcessDuringTheSleepWhileEventsKeepArriving) {
    const ChildRun run = runInChild([] {
        static std::atomic<bool> exiting;
        static std::atomic<int> delivered;
        blockSignalsWhileWorking();
        // Delays the end of the exit until events have arrived meanwhile.
        std::atexit([] {
            exiting = true;
            while (delivered < 100)
                std::this_thread::yield();
        });
        std::signal(SIGINT, [](int) { std::exit(0); });
        std::thread handler([] {
            blockAllSignals();
            untilTakerSleeps();
            kill(getpid(), SIGINT);
            while (!exiting)
                std::this_thread::yield();
            for (; delivered < 100; ++delivered)
                deliverEvent(event(EID_SELECT, 1), nobodyToDisturb);
        });
        handler.detach();
        Event out{};
        getNextEvent(&out, take(EID_LOCK), SKIP_OTHERS);
    });
    EXPECT_TRUE(run.exitedWith(0)) << run.waitStatus << run.err;
}

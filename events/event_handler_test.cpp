#include "events/event_handler.h"

#include "events/event_queue.h"
#include "events/taker_probe.h"
#include "process/process_state.h"
#include "process/signal_mask.h"
#include "tests/fakes/fake_barrier_table.h"

#include <atomic>
#include <csignal>
#include <gtest/gtest.h>
#include <pthread.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Log = std::vector<fake::LogLine>;

std::atomic<int> disturbed;

// The tests' main thread is the supervisor's: busy, unless a test makes it sleep in a take.
struct EventHandler : testing::Test {
    EventHandler() {
        fake::reset();
        flushEventQueue();
        for (int id = 0; id < 14; ++id)
            setQueueLimit(id, defaultQueueLimit);
        process.supervisorPid = getpid();
        process.mode = MODE_AUTO;
        disturbed = 0;
        std::signal(SIGUSR1, [](int) { ++disturbed; });
    }
};

Event event(int id, int value1 = 0, int value2 = 0) {
    Event e{};
    e.id = id;
    e.value1 = value1;
    e.value2 = value2;
    return e;
}

int queued(EventId id) {
    int count = 0;
    Event out{};
    while (peekNextEvent(&out, take(id), SKIP_OTHERS) == 0)
        ++count;
    return count;
}

// What an event does while the main thread is busy: the line about SIGUSR1, "" when nothing was sent.
std::string disturbance(const Event& e) {
    fake::log.clear();
    disturbed = 0;
    handleIncomingEvent(e);
    const Log log = fake::log;
    EXPECT_EQ(queued(static_cast<EventId>(e.id)), 1);
    if (log.size() == 1) {
        EXPECT_EQ(disturbed, 0);
        return "";
    }
    EXPECT_EQ(disturbed, 1);
    EXPECT_EQ(log.size(), 2U);
    EXPECT_EQ(log.back().level, 7);
    return log.back().text;
}

} // namespace

TEST_F(EventHandler, ASelectIsQueuedAndDisturbsABusyMainThread) {
    handleIncomingEvent(event(EID_SELECT, 3));
    EXPECT_EQ(disturbed, 1);
    EXPECT_EQ(fake::log, (Log{{7, "eventHandler() adding event to queue (id=11, val=(3,0))"},
                              {7, "eventHandler() Spotted EID_SELECT. Sending SIGUSR1"}}));
    EXPECT_EQ(queued(EID_SELECT), 1);
}

TEST_F(EventHandler, ASelectOnlyWakesAMainThreadThatSleepsInATake) {
    std::thread handler([] {
        blockAllSignals();
        untilTakerSleeps();
        handleIncomingEvent(event(EID_SELECT, 3));
    });
    Event out{};
    EXPECT_EQ(getNextEvent(&out, take(EID_SELECT), SKIP_OTHERS), 0);
    handler.join();
    EXPECT_EQ(out.value1, 3);
    EXPECT_EQ(disturbed, 0);
    EXPECT_FALSE(fake::logged(7, "eventHandler() Spotted EID_SELECT. Sending SIGUSR1"));
}

TEST_F(EventHandler, LosingTheConnectionDisturbs) {
    const Event changed = event(EID_CONNECTPROPERTYCHANGED);
    fake::setParam(0, "Decoder.Connected", "no");
    EXPECT_EQ(disturbance(changed),
              "eventHandler() Spotted EID_CONNECTPROPERTYCHANGED && Decoder.Connected=no. "
              "Sending SIGUSR1");
    fake::setParam(0, "Decoder.Connected", "yes");
    EXPECT_EQ(disturbance(changed), "");
    fake::setParam(0, "Decoder.Connected", "No");
    EXPECT_EQ(disturbance(changed), "");
}

TEST_F(EventHandler, AMissingConnectParameterNeverDisturbs) {
    EXPECT_EQ(disturbance(event(EID_CONNECTPROPERTYCHANGED)), "");
}

TEST_F(EventHandler, ALockDisturbs) {
    EXPECT_EQ(disturbance(event(EID_LOCK)), "eventHandler() Spotted EID_LOCK. Sending SIGUSR1");
}

TEST_F(EventHandler, AHeldButtonDisturbsInEitherMode) {
    const std::string line = "eventHandler() Spotted EID_BUTTON && button.hold. Sending SIGUSR1";
    EXPECT_EQ(disturbance(event(EID_BUTTON, 0, 1)), line);
    process.mode = MODE_MANUAL;
    EXPECT_EQ(disturbance(event(EID_BUTTON, 0, 1)), line);
}

TEST_F(EventHandler, AShortPressIsAnnouncedWithTheMode) {
    EXPECT_EQ(disturbance(event(EID_BUTTON, 0, 0)),
              "eventHandler() Spotted EID_BUTTON && !button.hold && mode==MODE_AUTO. Sending SIGUSR1");
    process.mode = MODE_MANUAL;
    EXPECT_EQ(disturbance(event(EID_BUTTON, 0, 0)),
              "eventHandler() Spotted EID_BUTTON && !button.hold && mode==MODE_MANUAL. Sending SIGUSR1");
}

TEST_F(EventHandler, OnlyTheLowByteOfValueTwoIsTheHoldFlag) {
    EXPECT_EQ(disturbance(event(EID_BUTTON, 0, 0x100)),
              "eventHandler() Spotted EID_BUTTON && !button.hold && mode==MODE_AUTO. Sending SIGUSR1");
    EXPECT_EQ(disturbance(event(EID_BUTTON, 0, 0x180)),
              "eventHandler() Spotted EID_BUTTON && button.hold. Sending SIGUSR1");
}

TEST_F(EventHandler, TheOtherEventsDoNotDisturb) {
    fake::setParam(0, "Alarm.Enabled", "yes");
    fake::setParam(0, "Decoder.Connected", "no");
    for (const EventId id : {EID_CHILD, EID_TIMEOUT, EID_BARRIER, EID_ALARM, EID_FLUSHCACHE, EID_RECONNECT})
        EXPECT_EQ(disturbance(event(id)), "") << id;
}

TEST_F(EventHandler, ADroppedThirdButtonStillDisturbs) {
    setQueueLimit(EID_BUTTON, 2);
    for (int i = 0; i < 3; ++i)
        handleIncomingEvent(event(EID_BUTTON));
    EXPECT_EQ(disturbed, 3);
    ASSERT_EQ(fake::log.size(), 6U);
    EXPECT_EQ(fake::log[4].text, "eventHandler() discarding event (event queue full id=4 max=2)");
    EXPECT_EQ(queued(EID_BUTTON), 2);
}

TEST_F(EventHandler, AnAlarmIsDroppedSilentlyUnlessAlarmsAreEnabled) {
    handleIncomingEvent(event(EID_ALARM)); // missing
    for (const char* text : {"no", "", "Yes"}) {
        fake::setParam(0, "Alarm.Enabled", text);
        handleIncomingEvent(event(EID_ALARM));
    }
    EXPECT_TRUE(fake::log.empty());
    EXPECT_EQ(queued(EID_ALARM), 0);
    fake::setParam(0, "Alarm.Enabled", "yes");
    handleIncomingEvent(event(EID_ALARM));
    EXPECT_EQ(queued(EID_ALARM), 1);
}

// What is sent after the start is not dropped as an event from before it.
TEST_F(EventHandler, TheStartReturnsWhenOldEventsAreDropped) {
    fake::onWaitEvent = [](Event*) { return -1; };
    startEventHandler();
    const std::vector<std::string> callsAtReturn = fake::calls;
    while (!fake::logged(7, "eventHandler() stopped"))
        std::this_thread::yield();
    EXPECT_EQ(callsAtReturn, (std::vector<std::string>{"clearEventQueue()"}));
}

TEST_F(EventHandler, TheThreadMovesEventsUntilWaitingFails) {
    static sigset_t mask;
    static bool detached;
    fake::waitingEvents = {event(EID_SELECT, 1), event(EID_LOCK, 2)};
    fake::onWaitEvent = [](Event* out) {
        pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        pthread_attr_t attributes;
        pthread_getattr_np(pthread_self(), &attributes);
        int state = 0;
        pthread_attr_getdetachstate(&attributes, &state);
        pthread_attr_destroy(&attributes);
        detached = state == PTHREAD_CREATE_DETACHED;
        if (fake::waitingEvents.empty())
            return -1;
        *out = fake::waitingEvents.front();
        fake::waitingEvents.pop_front();
        return 0;
    };
    startEventHandler();
    while (!fake::logged(7, "eventHandler() stopped"))
        std::this_thread::yield();
    EXPECT_EQ(fake::log, (Log{{7, "eventHandler() started"},
                              {7, "eventHandler() adding event to queue (id=11, val=(1,0))"},
                              {7, "eventHandler() Spotted EID_SELECT. Sending SIGUSR1"},
                              {7, "eventHandler() adding event to queue (id=12, val=(2,0))"},
                              {7, "eventHandler() Spotted EID_LOCK. Sending SIGUSR1"},
                              {3, "waitEvent() failed in eventHandler()"},
                              {7, "eventHandler() stopped"}}));
    EXPECT_EQ(fake::calls, (std::vector<std::string>{"clearEventQueue()"}));
    EXPECT_TRUE(detached);
    for (const int signo : {SIGINT, SIGSEGV, SIGCHLD, SIGUSR1, SIGTERM})
        EXPECT_EQ(sigismember(&mask, signo), 1) << signo;
    EXPECT_EQ(queued(EID_SELECT), 1);
    EXPECT_EQ(queued(EID_LOCK), 1);
}

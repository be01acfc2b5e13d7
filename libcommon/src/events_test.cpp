#include <libcommon/events.h>

#include "libcommon/src/events_fixture.h"

#include <cstring>
#include <thread>
#include <vector>

namespace {

TEST_F(Events, EventsArriveWholeAndInOrder) {
    ASSERT_EQ(initEventQueue(), 0);
    Event event = eventOf(EID_ALARM, 3, -7);
    libcommon::setEventText(event, "T\xc3\xbcr offen");
    ASSERT_EQ(sendEvent(&event), 0);
    ASSERT_EQ(send(EID_SELECT, 5), 0);
    Event got{};
    ASSERT_EQ(waitEvent(&got), 0);
    EXPECT_EQ(std::memcmp(&got, &event, sizeof got), 0);
    ASSERT_EQ(waitEvent(&got), 0);
    EXPECT_EQ(got.id, EID_SELECT);
    EXPECT_EQ(got.value1, 5);
    EXPECT_EQ(log(), "");
}

TEST_F(Events, EveryIdThatCanBeQueuedPassesWithAnyValue) {
    ASSERT_EQ(initEventQueue(), 0);
    for (int id = 0; id <= 13; ++id) {
        ASSERT_EQ(send(id, id, ~id), 0);
        Event got{};
        ASSERT_EQ(waitEvent(&got), 0);
        EXPECT_EQ(got.id, id);
        EXPECT_EQ(got.value2, ~id);
    }
}

TEST_F(Events, WithoutAnApplianceSendingFails) {
    EXPECT_EQ(sendError(EID_SELECT), ENOENT);
    EXPECT_EQ(inChild([] { // as a process that never attached to a queue
                  Event got{};
                  return waitEvent(&got) == -1 ? errno : 0;
              }),
              ENOENT);
    clearEventQueue();
    removeEventQueue();
    EXPECT_FALSE(exists(idFile()));
}

TEST_F(Events, NullPointersAreRefused) {
    ASSERT_EQ(initEventQueue(), 0);
    EXPECT_EQ(sendEvent(nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(waitEvent(nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(Events, ClearingDropsWhatIsQueued) {
    ASSERT_EQ(initEventQueue(), 0);
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(send(EID_SELECT), 0);
    clearEventQueue();
    EXPECT_EQ(state(queueId()).msg_qnum, 0U);
    ASSERT_EQ(send(EID_LOCK), 0);
    Event got{};
    ASSERT_EQ(waitEvent(&got), 0);
    EXPECT_EQ(got.id, EID_LOCK);
}

TEST_F(Events, MessagesThatAreNoEventsAreDropped) {
    ASSERT_EQ(initEventQueue(), 0);
    struct {
        long type = 5;
        char bytes[200] = {};
    } message;
    for (const std::size_t length : {0U, 1U, 51U, 53U, 200U})
        ASSERT_EQ(msgsnd(queueId(), &message, length, 0), 0);
    ASSERT_EQ(send(EID_LOCK), 0);
    Event got{};
    ASSERT_EQ(waitEvent(&got), 0);
    EXPECT_EQ(got.id, EID_LOCK);
}

TEST_F(Events, TheOwnerSendsFromASignalHandler) {
    ASSERT_EQ(initEventQueue(), 0);
    installHandler(SIGUSR2, sendFromHandler);
    errno = EDOM;
    raise(SIGUSR2);
    EXPECT_EQ(errno, EDOM);
    EXPECT_EQ(handled, 1);
    EXPECT_EQ(state(queueId()).msg_qnum, 1U);
}

TEST_F(Events, WaitingContinuesAfterSignals) {
    ASSERT_EQ(initEventQueue(), 0);
    installHandler(SIGUSR1, [](int) { ++handled; });
    const pthread_t waiter = pthread_self();
    std::thread disturber([&] {
        while (handled < 50)
            pthread_kill(waiter, SIGUSR1);
        send(EID_LOCK);
    });
    Event got{};
    EXPECT_EQ(waitEvent(&got), 0);
    EXPECT_EQ(got.id, EID_LOCK);
    EXPECT_GE(handled, 50);
    disturber.join();
}

TEST_F(Events, ThreadsSendAtOnce) {
    ASSERT_EQ(initEventQueue(), 0);
    std::vector<std::thread> senders;
    senders.reserve(4);
    for (int t = 0; t < 4; ++t)
        senders.emplace_back([t] {
            for (int i = 0; i < 500; ++i)
                while (send(EID_TIMEOUT, t, i) != 0)
                    std::this_thread::yield();
        });
    int next[4] = {};
    for (int i = 0; i < 2000; ++i) {
        Event got{};
        ASSERT_EQ(waitEvent(&got), 0);
        ASSERT_EQ(got.value2, next[got.value1]++);
    }
    for (std::thread& sender : senders)
        sender.join();
}

// ---- Alarm texts.

std::string textOf(const Event& event) {
    return {reinterpret_cast<const char*>(event.payload)};
}

TEST(EventText, FillsThePayloadUpToThirtyNineBytes) {
    Event event{};
    std::memset(event.payload, 0x55, sizeof event.payload);
    libcommon::setEventText(event, "Door");
    EXPECT_EQ(textOf(event), "Door");
    EXPECT_EQ(event.payload[9], 0);
    libcommon::setEventText(event, std::string(39, 'x').c_str());
    EXPECT_EQ(textOf(event), std::string(39, 'x'));
    libcommon::setEventText(event, std::string(1000, 'y').c_str());
    EXPECT_EQ(textOf(event), std::string(39, 'y'));
}

TEST(EventText, IsCutBetweenCharacters) {
    Event event{};
    libcommon::setEventText(event, (std::string(38, 'x') + "\xc3\xa4").c_str());
    EXPECT_EQ(textOf(event), std::string(38, 'x'));
    libcommon::setEventText(event, (std::string(37, 'x') + "\xc3\xa4").c_str());
    EXPECT_EQ(textOf(event), std::string(37, 'x') + "\xc3\xa4");
    libcommon::setEventText(event, (std::string(36, 'x') + "\xf0\x9f\x98\x80").c_str());
    EXPECT_EQ(textOf(event), std::string(36, 'x'));
}

TEST(EventText, NullIsTheEmptyText) {
    Event event{};
    libcommon::setEventText(event, "before");
    libcommon::setEventText(event, nullptr);
    EXPECT_EQ(textOf(event), "");
    libcommon::setEventText(event, "");
    EXPECT_EQ(textOf(event), "");
}

} // namespace

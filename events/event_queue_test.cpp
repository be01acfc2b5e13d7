#include "events/event_queue.h"

#include "tests/fakes/fake_barrier_table.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <vector>

namespace {

using Log = std::vector<fake::LogLine>;
using Words = std::vector<SelectionWord>;

struct EventQueue : testing::Test {
    EventQueue() {
        fake::reset();
        fake::players.clear();
        flushEventQueue();
        for (int id = -1; id < 14; ++id)
            setQueueLimit(id, defaultQueueLimit);
    }
};

Event event(int id, int value1 = 0, int value2 = 0) {
    Event e{};
    e.id = id;
    e.value1 = value1;
    e.value2 = value2;
    return e;
}

int peek(const Words& words, Event* out) {
    return takeEvent(out, words.data(), words.size(), false);
}

// Empties the queue; returns value 1 of each event, oldest first.
std::vector<int> drain() {
    std::vector<int> values;
    Event out{};
    while (peekNextEvent(&out, selection(ACTION_TAKE, EID_OTHER)) == 0)
        values.push_back(out.value1);
    return values;
}

void push(std::initializer_list<Event> events) {
    for (const Event& e : events)
        pushEvent(e);
    fake::log.clear();
}

void nobodyToDisturb(const Event&) {}

} // namespace

TEST_F(EventQueue, SelectionWordsCarryTheActionAboveTheIdentifier) {
    EXPECT_EQ(selection(ACTION_SKIP, EID_BUTTON), 0x20004U);
    EXPECT_EQ(SKIP_OTHERS, 0x2ffffU);
    EXPECT_EQ(take(EID_TIMEOUT), 0x10006U);
    EXPECT_EQ(discard(EID_BUTTON), 0x30004U);
}

TEST_F(EventQueue, ATakeCopiesTheWholeRecord) {
    Event sent = event(EID_ALARM, 3, 4);
    for (int i = 0; i < 10; ++i)
        sent.payload[i] = 100 + i;
    pushEvent(sent);
    Event out{};
    EXPECT_EQ(peekNextEvent(&out, take(EID_ALARM), SKIP_OTHERS), 0);
    EXPECT_EQ(std::memcmp(&out, &sent, sizeof out), 0);
}

TEST_F(EventQueue, TheOldestEventThatIsWantedComesFirst) {
    push({event(EID_SELECT, 1), event(EID_LOCK, 2), event(EID_SELECT, 3), event(EID_LOCK, 4)});
    Event out{};
    EXPECT_EQ(peekNextEvent(&out, take(EID_LOCK), SKIP_OTHERS), 0);
    EXPECT_EQ(out.value1, 2);
    EXPECT_EQ(drain(), (std::vector<int>{1, 3, 4}));
}

TEST_F(EventQueue, AHighHalfOfZeroMeansTake) {
    push({event(EID_SELECT, 1), event(EID_LOCK, 2)});
    Event out{};
    EXPECT_EQ(peekNextEvent(&out, EID_LOCK, SKIP_OTHERS), 0);
    EXPECT_EQ(out.value1, 2);
    EXPECT_EQ(peekNextEvent(&out, EID_OTHER), 0);
    EXPECT_EQ(out.value1, 1);
}

TEST_F(EventQueue, SkippingEverythingLeavesTheQueueAsItWas) {
    push({event(EID_SELECT, 1), event(EID_LOCK, 2)});
    Event out = event(77, 77, 77);
    EXPECT_EQ(peekNextEvent(&out, SKIP_OTHERS), -1);
    EXPECT_EQ(out.id, 77);
    EXPECT_EQ(drain(), (std::vector<int>{1, 2}));
}

TEST_F(EventQueue, AnEmptyQueueGivesNothing) {
    Event out{};
    EXPECT_EQ(peekNextEvent(&out, selection(ACTION_TAKE, EID_OTHER)), -1);
}

TEST_F(EventQueue, ADiscardedButtonIsGoneWhenTheTimerBehindItIsTaken) {
    setQueueLimit(EID_BUTTON, 1);
    setQueueLimit(EID_TIMEOUT, 1);
    push({event(EID_BUTTON, 1), event(EID_TIMEOUT, 65536)});
    Event out{};
    EXPECT_EQ(peek({0x30004, 0x10006, 0x2ffff}, &out), 0);
    EXPECT_EQ(out.id, EID_TIMEOUT);
    EXPECT_EQ(out.value1, 65536);
    EXPECT_EQ(peekNextEvent(&out, selection(ACTION_TAKE, EID_OTHER)), -1);
    // Both counts fell: there is room for one of each again.
    push({event(EID_BUTTON, 5), event(EID_TIMEOUT, 6)});
    EXPECT_EQ(drain(), (std::vector<int>{5, 6}));
}

TEST_F(EventQueue, DiscardingContinuesToTheEndWhenNothingIsTaken) {
    push({event(EID_BUTTON, 1), event(EID_LOCK, 2), event(EID_BUTTON, 3)});
    Event out{};
    EXPECT_EQ(peekNextEvent(&out, discard(EID_BUTTON), SKIP_OTHERS), -1);
    EXPECT_EQ(drain(), (std::vector<int>{2}));
}

TEST_F(EventQueue, ThirdButtonIsDroppedWhileTwoAreQueued) {
    setQueueLimit(EID_BUTTON, 2);
    pushEvent(event(EID_BUTTON, 1));
    pushEvent(event(EID_BUTTON, 2));
    pushEvent(event(EID_BUTTON, 3));
    EXPECT_EQ(fake::log,
              (Log{{7, "eventHandler::pushEvent() pushing event to queue (id=4)"},
                   {7, "eventHandler::pushEvent() pushing event to queue (id=4)"},
                   {7, "eventHandler::pushEvent() discarding event (event queue full id=4 max=2)"}}));
    Event out{};
    EXPECT_EQ(peekNextEvent(&out, take(EID_BUTTON), SKIP_OTHERS), 0);
    EXPECT_EQ(out.value1, 1);
    pushEvent(event(EID_BUTTON, 4));
    EXPECT_EQ(drain(), (std::vector<int>{2, 4}));
}

TEST_F(EventQueue, TheHandlersAppendHasLogTextsOfItsOwn) {
    setQueueLimit(EID_ALARM, 1);
    deliverEvent(event(EID_ALARM, 5, -6), nobodyToDisturb);
    deliverEvent(event(EID_ALARM, 7, 8), nobodyToDisturb);
    EXPECT_EQ(fake::log, (Log{{7, "eventHandler() adding event to queue (id=8, val=(5,-6))"},
                              {7, "eventHandler() discarding event (event queue full id=8 max=1)"}}));
    EXPECT_EQ(drain(), (std::vector<int>{5}));
}

TEST_F(EventQueue, TheDefaultLimitIs256OfEachIdentifier) {
    for (int i = 0; i < 300; ++i)
        pushEvent(event(EID_SELECT, i));
    pushEvent(event(EID_LOCK, 1000));
    const std::vector<int> queued = drain();
    ASSERT_EQ(queued.size(), 257U);
    EXPECT_EQ(queued[255], 255);
    EXPECT_EQ(queued[256], 1000);
}

TEST_F(EventQueue, FlushDropsEventsAndCountsAndKeepsLimits) {
    setQueueLimit(EID_BUTTON, 2);
    push({event(EID_BUTTON, 1), event(EID_BUTTON, 2)});
    flushEventQueue();
    EXPECT_EQ(drain(), (std::vector<int>{}));
    push({event(EID_BUTTON, 3), event(EID_BUTTON, 4), event(EID_BUTTON, 5)});
    EXPECT_EQ(drain(), (std::vector<int>{3, 4}));
}

TEST_F(EventQueue, FourteenIdentifiersAndTheEndAreAccepted) {
    Words words;
    for (std::uint32_t id = 0; id < 14; ++id)
        words.push_back(selection(ACTION_SKIP, id));
    words.push_back(selection(ACTION_TAKE, EID_OTHER));
    push({event(EID_LOCK, 1)});
    Event out{};
    EXPECT_EQ(peek(words, &out), -1);
    EXPECT_TRUE(fake::log.empty());
}

TEST_F(EventQueue, FifteenIdentifiersAreRefused) {
    Words words;
    for (std::uint32_t i = 0; i < 15; ++i)
        words.push_back(selection(ACTION_TAKE, i % 14));
    words.push_back(SKIP_OTHERS);
    push({event(EID_LOCK, 1)});
    Event out = event(77);
    EXPECT_EQ(peek(words, &out), -1);
    EXPECT_EQ(fake::log, (Log{{3, "getNextEvent(): Seems to miss EID_OTHER"}}));
    EXPECT_EQ(out.id, 77);
    EXPECT_EQ(drain(), (std::vector<int>{1}));
}

TEST_F(EventQueue, AListThatEndsWithoutTheEndWordIsRefusedInBothForms) {
    push({event(EID_LOCK, 1)});
    Event out = event(77);
    EXPECT_EQ(peekNextEvent(&out, take(EID_LOCK)), -1);
    EXPECT_EQ(getNextEvent(&out, take(EID_LOCK)), -1);
    EXPECT_EQ(takeEvent(&out, nullptr, 0, true), -1);
    EXPECT_EQ(fake::log, Log(3, {3, "getNextEvent(): Seems to miss EID_OTHER"}));
    EXPECT_EQ(out.id, 77);
    EXPECT_EQ(drain(), (std::vector<int>{1}));
}

TEST_F(EventQueue, WordsBehindTheEndAreNotRead) {
    push({event(EID_LOCK, 1)});
    Event out{};
    EXPECT_EQ(peekNextEvent(&out, SKIP_OTHERS, take(EID_LOCK)), -1);
    EXPECT_EQ(drain(), (std::vector<int>{1}));
}

TEST_F(EventQueue, ALaterWordForTheSameIdentifierWins) {
    push({event(EID_LOCK, 1)});
    Event out{};
    EXPECT_EQ(peekNextEvent(&out, discard(EID_LOCK), selection(ACTION_SKIP, EID_LOCK), SKIP_OTHERS), -1);
    EXPECT_EQ(drain(), (std::vector<int>{1}));
}

TEST_F(EventQueue, AnUnknownActionIsRefusedWhenItsEventIsReached) {
    push({event(EID_BUTTON, 1), event(EID_SELECT, 2), event(EID_LOCK, 3), event(EID_BUTTON, 4)});
    Event out = event(77);
    const Words words{discard(EID_BUTTON), selection(4, EID_LOCK), SKIP_OTHERS};
    EXPECT_EQ(peek(words, &out), -2);
    EXPECT_EQ(fake::log, (Log{{3, "getNextEvent(): illegal action"}}));
    EXPECT_EQ(out.id, 77);
    EXPECT_EQ(takeEvent(&out, words.data(), words.size(), true), -2);
    EXPECT_EQ(drain(), (std::vector<int>{2, 3, 4}));
}

TEST_F(EventQueue, AnUnknownActionIsIgnoredWhenItsEventIsNotReached) {
    push({event(EID_SELECT, 2)});
    Event out{};
    EXPECT_EQ(peekNextEvent(&out, selection(0xffff, EID_LOCK), take(EID_SELECT), SKIP_OTHERS), 0);
    EXPECT_EQ(peekNextEvent(&out, selection(4, EID_OTHER)), -1);
}

TEST_F(EventQueue, AnUnknownActionForAllOthersIsRefusedToo) {
    push({event(EID_SELECT, 2)});
    Event out{};
    EXPECT_EQ(peekNextEvent(&out, selection(4, EID_OTHER)), -2);
    EXPECT_EQ(drain(), (std::vector<int>{2}));
}

TEST_F(EventQueue, EventsOutsideTheIdentifiersAreTreatedAsOthers) {
    push({event(14, 1), event(-1, 2), event(65535, 3), event(EID_LOCK, 4)});
    Event out{};
    EXPECT_EQ(peekNextEvent(&out, take(EID_LOCK), selection(ACTION_SKIP, EID_OTHER)), 0);
    EXPECT_EQ(out.value1, 4);
    EXPECT_EQ(drain(), (std::vector<int>{1, 2, 3}));
}

TEST_F(EventQueue, WordsOutsideTheIdentifiersNameNothing) {
    push({event(14, 1), event(4000, 2), event(EID_LOCK, 3)});
    Event out{};
    EXPECT_EQ(peekNextEvent(&out, selection(ACTION_TAKE, 14), selection(ACTION_DISCARD, 4000), SKIP_OTHERS),
              -1);
    EXPECT_EQ(drain(), (std::vector<int>{1, 2, 3}));
}

TEST_F(EventQueue, EveryWalkLogsTheChildrenItMeetsAndDropsTheirBarriers) {
    push({event(EID_CHILD, 117, 9), event(EID_LOCK, 1), event(EID_CHILD, 118, 0)});
    Event out{};
    EXPECT_EQ(peekNextEvent(&out, take(EID_LOCK), SKIP_OTHERS), 0);
    EXPECT_EQ(fake::calls, (std::vector<std::string>{"dropBarrier(117)"}));
    EXPECT_EQ(fake::log, (Log{{7, "Got EID_CHILD from pid:117\n"}}));
    EXPECT_EQ(peekNextEvent(&out, SKIP_OTHERS), -1);
    EXPECT_EQ(fake::calls,
              (std::vector<std::string>{"dropBarrier(117)", "dropBarrier(117)", "dropBarrier(118)"}));
    fake::calls.clear();
    EXPECT_EQ(peekNextEvent(&out, take(EID_CHILD), SKIP_OTHERS), 0);
    EXPECT_EQ(out.value2, 9);
    EXPECT_EQ(peekNextEvent(&out, discard(EID_CHILD), SKIP_OTHERS), -1);
    EXPECT_EQ(fake::calls, (std::vector<std::string>{"dropBarrier(117)", "dropBarrier(118)"}));
}

// ---- A player's arrival and exit come only once, and are not lost to forged events.

namespace {

constexpr int living = 117;

void fillWithForged(int id) {
    for (int i = 0; i < defaultQueueLimit; ++i)
        deliverEvent(event(id, 500000 + i), nobodyToDisturb);
    fake::log.clear();
}

} // namespace

TEST_F(EventQueue, APlayersArrivalIsAppendedWhenThereIsRoomAgain) {
    fake::players = {living};
    fillWithForged(EID_BARRIER);
    deliverEvent(event(EID_BARRIER, living, 1), nobodyToDisturb);
    EXPECT_EQ(fake::log, (Log{{7, "eventHandler() discarding event (event queue full id=7 max=256)"}}));
    Event out{};
    int taken = 0;
    while (peekNextEvent(&out, take(EID_BARRIER), SKIP_OTHERS) == 0 && out.value1 != living)
        ++taken;
    EXPECT_EQ(out.value1, living);
    EXPECT_EQ(out.value2, 1);
    EXPECT_EQ(taken, defaultQueueLimit);
    EXPECT_EQ(drain(), (std::vector<int>{})) << "it comes once";
}

TEST_F(EventQueue, APlayersExitIsAppendedWhenThereIsRoomAgain) {
    fake::players = {living};
    fillWithForged(EID_CHILD);
    deliverEvent(event(EID_CHILD, living, 9), nobodyToDisturb);
    deliverEvent(event(EID_CHILD, living, 9), nobodyToDisturb); // forged, too
    std::vector<int> values = drain();
    ASSERT_EQ(values.size(), 257U);
    EXPECT_EQ(values.back(), living);
}

TEST_F(EventQueue, ADiscardMakesRoomForALateEventAndReachesItToo) {
    fake::players = {living};
    fillWithForged(EID_BARRIER);
    deliverEvent(event(EID_BARRIER, living, 0), nobodyToDisturb);
    Event out{};
    EXPECT_EQ(peekNextEvent(&out, discard(EID_BARRIER), SKIP_OTHERS), -1);
    EXPECT_EQ(drain(), (std::vector<int>{}));
}

TEST_F(EventQueue, AStrangersEventBeyondTheLimitIsLost) {
    fillWithForged(EID_BARRIER);
    deliverEvent(event(EID_BARRIER, living, 1), nobodyToDisturb);
    EXPECT_EQ(drain().size(), 256U);
}

TEST_F(EventQueue, AFlushForgetsLateEventsToo) {
    fake::players = {living};
    fillWithForged(EID_BARRIER);
    deliverEvent(event(EID_BARRIER, living, 1), nobodyToDisturb);
    flushEventQueue();
    EXPECT_EQ(drain(), (std::vector<int>{}));
}

TEST_F(EventQueue, ALimitBelowOneIsNotBrokenForAPlayer) {
    fake::players = {living};
    setQueueLimit(EID_BARRIER, 0);
    deliverEvent(event(EID_BARRIER, living, 1), nobodyToDisturb);
    EXPECT_EQ(drain(), (std::vector<int>{}));
}

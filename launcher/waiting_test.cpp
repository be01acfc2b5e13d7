#include "launcher/waiting.h"

#include "launcher/machine_test.h"

#include <cstring>

namespace {

using Waiting = MachineTest;

// The waiting states of both modes, the events that each takes, and the calls at its beginning.
struct WaitingState {
    State state;
    const char* wait;
    bool hasPlayer;
    Calls display;
};

const Calls noConnection{"set_led(2,2,2)", "osdPrintf(0,0) No connection to encoder Cam 1(10.0.0.1)"};

const WaitingState waitingStates[] = {
    {AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT, "getNextEvent(4,11,9,12,6,2)", true, {}},
    {AUTO_SLEEP_AFTER_ENCODER_REQUEST_FAILED, "getNextEvent(4,11,6,9,12)", false, noConnection},
    {AUTO_WAIT_ERROR_SLEEP_EVENT, "getNextEvent(4,11,6,9,12)", false, noConnection},
    {AUTO_PAUSE, "getNextEvent(4,11,2,9,12)", true, {"osdPrintf(1,0) Sequence paused"}},
    {SLEEP_AFTER_CRASH_DURING_PAUSE, "getNextEvent(4,11,6,9,12)", false, noConnection},
    {MANUAL_WAIT_FOR_NEW_SELECTION, "getNextEvent(8,4,11,2,9,12)", true, {}},
    {MANUAL_WAIT_ERROR_SLEEP_EVENT,
     "getNextEvent(4,11,8,6,9,12)",
     false,
     {"osdPrintf(0,0) No connection to encoder Cam 1(10.0.0.1)", "set_led(2,2,2)"}},
};

struct CommonReactions : MachineTest, testing::WithParamInterface<WaitingState> {
    CommonReactions() {
        machine.pendingSource = 1;
        if (GetParam().hasPlayer)
            playing(1);
        enter(GetParam().state);
    }

    Calls after(const Calls& more) const {
        Calls all = GetParam().display;
        all.emplace_back(GetParam().wait);
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }

    bool takes(int id) const {
        const std::string list = std::string(",") + (std::strchr(GetParam().wait, '(') + 1);
        const std::string number = std::to_string(id);
        return list.find("," + number + ",") != std::string::npos ||
               list.find("," + number + ")") != std::string::npos;
    }

    static std::string unchanged() { return stateName(GetParam().state); }
};

INSTANTIATE_TEST_SUITE_P(InEveryWaitingState, CommonReactions, testing::ValuesIn(waitingStates),
                         [](const auto& row) { return std::string(stateName(row.param.state)); });

} // namespace

TEST_P(CommonReactions, ToldToDisconnectItStopsPlaying) {
    fake::setParam(0, "Decoder.Connected", "no");
    turn({fake::event(EID_CONNECTPROPERTYCHANGED)});
    EXPECT_EQ(state(), "STOP_PLAYING");
    EXPECT_EQ(calls, after({}));
}

TEST_P(CommonReactions, ToldToConnectItStays) {
    for (const char* connected : {"yes", "", "No"}) {
        fake::setParam(0, "Decoder.Connected", connected);
        turn({fake::event(EID_CONNECTPROPERTYCHANGED)});
        EXPECT_EQ(state(), unchanged());
        EXPECT_EQ(calls, after({}));
        EXPECT_TRUE(fake::queue.empty());
    }
}

TEST_P(CommonReactions, ALockGoesBackIntoTheQueueAndStopsPlaying) {
    turn({fake::event(EID_LOCK, 7, 8)});
    EXPECT_EQ(state(), "STOP_PLAYING");
    EXPECT_EQ(calls, after({"pushEvent(12,7,8)"}));
    EXPECT_EQ(queuedIds(), (std::vector<int>{EID_LOCK}));
}

TEST_P(CommonReactions, ALongPressDisconnectsAndStopsPlaying) {
    turn({longPress()});
    EXPECT_EQ(state(), "STOP_PLAYING");
    Calls expected = after({"param(0) Decoder.Connected=no"});
    if (GetParam().state == AUTO_PAUSE)
        expected = after({"osdClear(1)", "param(0) Decoder.Connected=no"});
    EXPECT_EQ(calls, expected);
}

TEST_P(CommonReactions, AnUnknownChildIsLoggedAndNothingElse) {
    if (!takes(EID_CHILD)) {
        turnThatWaits({childExit(555)});
        EXPECT_EQ(queuedIds(), (std::vector<int>{EID_CHILD})); // for a later state
        return;
    }
    turn({childExit(555)});
    EXPECT_EQ(state(), unchanged());
    EXPECT_EQ(log, (Log{{3, "Unknown child event. pid=555"}}));
    EXPECT_EQ(calls, after({}));
}

TEST_P(CommonReactions, AnEarlierTimerIsDropped) {
    machine.sequenceTimerId = 70000;
    machine.sleepTimerId = 70000;
    machine.lockTimerId = 70001;
    if (!takes(EID_TIMEOUT)) {
        turnThatWaits({fake::event(EID_TIMEOUT, 69999)});
        EXPECT_EQ(queuedIds(), (std::vector<int>{EID_TIMEOUT}));
        return;
    }
    turn({fake::event(EID_TIMEOUT, 69999)});
    EXPECT_EQ(state(), unchanged());
    EXPECT_EQ(calls, after({}));
    Log expected;
    if (GetParam().state == AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT)
        expected = {{7, "Unknown timer ID, probably from previous crashed/interrupted PID. ID=69999"}};
    EXPECT_EQ(log, expected);
}

TEST_P(CommonReactions, UnlistedEventsStayQueued) {
    std::vector<Event> unlisted;
    for (const int id : {EID_CHILD, EID_BUTTON, EID_TIMEOUT, EID_BARRIER, EID_ALARM,
                         EID_CONNECTPROPERTYCHANGED, EID_FLUSHCACHE, EID_SELECT, EID_LOCK, EID_RECONNECT})
        if (!takes(id))
            unlisted.push_back(fake::event(id));
    turnThatWaits(unlisted);
    EXPECT_EQ(fake::queue.size(), unlisted.size());
    EXPECT_EQ(state(), unchanged());
    EXPECT_EQ(calls, after({}));
}

TEST_P(CommonReactions, AFailingQueueSleepsOneSecondPerTurnInsteadOfSpinning) {
    fake::takeResult = -2;
    turn({fake::event(EID_LOCK)});
    EXPECT_EQ(state(), unchanged());
    EXPECT_EQ(log, (Log{{3, "Could not wait for events. result=-2"}}));
    EXPECT_EQ(calls, after({"sleepSeconds(1)"}));
}

TEST_F(Waiting, AHoldIsTheLowByteOfAButtonsSecondValue) {
    EXPECT_TRUE(isShortPress(fake::event(EID_BUTTON, 1, 0)));
    EXPECT_TRUE(isShortPress(fake::event(EID_BUTTON, 1, 0x100)));
    EXPECT_TRUE(isLongPress(fake::event(EID_BUTTON, 0, 1)));
    EXPECT_TRUE(isLongPress(fake::event(EID_BUTTON, 0, 0x1ff)));
    EXPECT_FALSE(isShortPress(fake::event(EID_SELECT)));
    EXPECT_FALSE(isLongPress(fake::event(EID_SELECT, 0, 1)));
}

TEST_F(Waiting, AnEmptyQueueGivesNoEvent) {
    EXPECT_FALSE(takeIfQueued(EID_LOCK).has_value());
    fake::deliver(fake::event(EID_SELECT, 3));
    EXPECT_FALSE(takeIfQueued(EID_LOCK).has_value());
    EXPECT_EQ(takeIfQueued(EID_LOCK, EID_SELECT)->value1, 3);
}

TEST_F(Waiting, AFailingPeekGivesNoEvent) {
    fake::deliver(fake::event(EID_LOCK));
    fake::takeResult = -1;
    EXPECT_FALSE(takeIfQueued(EID_LOCK).has_value());
}

TEST_F(Waiting, TheFirstAlarmAfterTheStartIsAccepted) {
    EXPECT_TRUE(passesAlarmGate(alarm(4, "door")));
    EXPECT_EQ(machine.pendingSource, 4);
    EXPECT_EQ(machine.alarmText, "door");
    EXPECT_EQ(machine.lastAlarmTime, fake::now);
}

TEST_F(Waiting, ASecondAlarmWithinTheDisplayTimeIsDropped) {
    EXPECT_TRUE(passesAlarmGate(alarm(4, "door")));
    fake::now += 20'000'000 - 1;
    EXPECT_FALSE(passesAlarmGate(alarm(5, "gate")));
    EXPECT_EQ(machine.pendingSource, 4);
    EXPECT_EQ(machine.alarmText, "door");
    EXPECT_EQ(machine.lastAlarmTime, fake::now - (20'000'000 - 1));
    fake::now += 1;
    EXPECT_TRUE(passesAlarmGate(alarm(5, "gate")));
    EXPECT_EQ(machine.alarmText, "gate");
}

TEST_F(Waiting, OnlyAnAlarmPassesTheGate) {
    for (const int id : {0, 2, 4, 11, 12})
        EXPECT_FALSE(passesAlarmGate(fake::event(id, 3)));
    EXPECT_EQ(machine.pendingSource, -1);
}

TEST_F(Waiting, AnAlarmTextMayFillThePayloadToTheLastByte) {
    Event event = alarm(1);
    std::memset(event.payload, 'x', sizeof event.payload);
    takeAlarm(event);
    EXPECT_EQ(machine.alarmText, std::string(40, 'x'));
}

TEST_F(Waiting, AnAlarmTextEndsAtItsNul) {
    Event event = alarm(1);
    std::memset(event.payload, 'x', sizeof event.payload);
    std::memcpy(event.payload, "fire\0water", 10);
    takeAlarm(event);
    EXPECT_EQ(machine.alarmText, "fire");
}

TEST_F(Waiting, OnlyAChildsExitEndsAPlayer) {
    process.currentPID = 100;
    process.pendingPID = 200;
    EXPECT_FALSE(currentPlayerEnded(fake::event(EID_TIMEOUT, 100)));
    EXPECT_FALSE(pendingPlayerEnded(fake::event(EID_TIMEOUT, 200)));
    EXPECT_TRUE(currentPlayerEnded(childExit(100)));
    EXPECT_TRUE(pendingPlayerEnded(childExit(200)));
}

TEST_F(Waiting, ABarrierIsPassedUnlessItsResultIsNegative) {
    fake::barrierResults = {0, -1};
    EXPECT_TRUE(meetAtBarrier(0, 100));
    EXPECT_FALSE(meetAtBarrier(1, 200, 100));
    EXPECT_EQ(fake::calls.at(fake::calls.size() - 2), "masterBarrier(0,100)");
    EXPECT_EQ(fake::calls.back(), "masterBarrier(1,200,100)");
}

#include "launcher/machine_test.h"

namespace {

struct AutoSequence : MachineTest {
    AutoSequence() {
        machine.sourceSequence = {1, 4, 7};
        playing(4);
    }
};

struct AutoErrorSleep : MachineTest {
    AutoErrorSleep() {
        machine.pendingSource = 1;
        machine.sleepTimerId = 70000;
        machine.sequenceTimerId = 70001;
    }
};

struct TimeLeft : MachineTest {
    TimeLeft() {
        machine.pendingSource = 1;
        enter(AUTO_CHECK_FOR_TIME_LEFT_RECONNECT);
    }
};

} // namespace

TEST_F(AutoSequence, TheDisplayTimeOfTheSourceIsArmed) {
    fake::sources[4]["DisplayTime"] = "7";
    machine.sequenceStart = -1;
    enter(AUTO_START_TIMER);
    turn();
    EXPECT_EQ(state(), "AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT");
    EXPECT_EQ(calls, (Calls{"setTimeout(7000)"}));
    EXPECT_EQ(machine.sequenceTimerId, 65536);
    EXPECT_EQ(machine.sequenceStart, fake::now);
}

TEST_F(AutoSequence, TheStartOfTheChoiceIsKeptWhenThePlayerCameBack) {
    machine.sequenceStart = 123;
    enter(AUTO_START_TIMER);
    turn();
    EXPECT_EQ(machine.sequenceStart, 123);
}

TEST_F(AutoSequence, ALargeDisplayTimeDoesNotOverflow) {
    fake::sources[4]["DisplayTime"] = "99999999999";
    enter(AUTO_START_TIMER);
    turn();
    EXPECT_EQ(calls, (Calls{"setTimeout(2147483647000)"}));
}

TEST_F(AutoSequence, APausedSequenceArmsNoTimer) {
    machine.sequencePaused = true;
    enter(AUTO_START_TIMER);
    turn();
    EXPECT_EQ(state(), "AUTO_PAUSE");
    EXPECT_EQ(calls, Calls{});
}

TEST_F(AutoSequence, AShortPressPauses) {
    enter(AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT);
    turn({shortPress()});
    EXPECT_EQ(state(), "AUTO_PAUSE");
}

TEST_F(AutoSequence, ASelectionIsShownAndTheSequencePositionKept) {
    machine.sequencePos = 1;
    machine.sequencePaused = true;
    enter(AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT);
    turn({fake::event(EID_SELECT, 5)});
    EXPECT_EQ(state(), "AUTO_DIRECT_SOURCE_SELECT");
    EXPECT_EQ(machine.pendingSource, 5);
    turn();
    EXPECT_EQ(state(), "SELECT_SOURCE_ID");
    EXPECT_EQ(calls, (Calls{"osdClear(1)"}));
    EXPECT_FALSE(machine.sequencePaused);
    EXPECT_EQ(machine.sequencePos, 1);
}

TEST_F(AutoSequence, TheEndOfTheDisplayTimeMovesOn) {
    enter(AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT);
    machine.sequenceTimerId = 70000;
    turn({fake::event(EID_TIMEOUT, 70000)});
    EXPECT_EQ(state(), "AUTO_GOTO_NEXT_SOURCE");
    turn();
    EXPECT_EQ(state(), "SELECT_SOURCE_ID");
    EXPECT_EQ(calls, (Calls{"osdClear(1)"}));
    EXPECT_EQ(machine.pendingSource, 7);
    EXPECT_EQ(machine.sequencePos, 2);
}

TEST_F(AutoSequence, TheErrorSleepsTimerIsNotTheDisplayTimer) {
    enter(AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT);
    machine.sequenceTimerId = 70000;
    machine.sleepTimerId = 70001;
    turn({fake::event(EID_TIMEOUT, 70001)});
    EXPECT_EQ(state(), "AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT");
    EXPECT_EQ(log, (Log{{7, "Unknown timer ID, probably from previous crashed/interrupted PID. ID=70001"}}));
}

TEST_F(AutoSequence, APlayersExitIsClassified) {
    enter(AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT);
    turn({childExit(currentPlayer, 23 << 8)});
    EXPECT_EQ(state(), "CURRENT_PLAYER_CRASHED_DURING_PLAYING");
    EXPECT_EQ(calls.back(), "handleError(4,100,5888)");
}

TEST_F(AutoSequence, TheNextSourceIsTheNextHigherIndex) {
    struct Row {
        int pending;
        int next;
        int position;
    };
    for (const Row& row :
         {Row{4, 7, 2}, Row{7, 1, 0}, Row{5, 7, 2}, Row{1, 4, 1}, Row{-1, 1, 0}, Row{99, 1, 0}}) {
        machine.pendingSource = row.pending;
        machine.sequencePos = 2;
        machine.sequencePaused = true;
        enter(AUTO_GOTO_NEXT_SOURCE);
        turn();
        EXPECT_EQ(state(), "SELECT_SOURCE_ID");
        EXPECT_EQ(machine.pendingSource, row.next) << row.pending;
        EXPECT_EQ(machine.sequencePos, row.position);
        EXPECT_FALSE(machine.sequencePaused);
    }
}

TEST_F(AutoSequence, WithAnEmptySequenceTheEndOfASelectionDisconnects) {
    enter(AUTO_GOTO_NEXT_SOURCE);
    machine.sourceSequence.clear();
    machine.sequencePos = 5;
    turn();
    EXPECT_EQ(state(), "STOP_PLAYING");
    EXPECT_EQ(calls, (Calls{"osdClear(1)", "param(0) Decoder.Connected=no"}));
    EXPECT_EQ(
        log, (Log{{7, "No sources available in this mode but a source is playing because of user select."}}));
    EXPECT_EQ(machine.sequencePos, 0);
    EXPECT_EQ(machine.pendingSource, 4);
}

TEST_F(AutoErrorSleep, TheMissingEncoderIsNamedWhileNoPlayerShows) {
    for (const State sleep : {AUTO_SLEEP_AFTER_ENCODER_REQUEST_FAILED, AUTO_WAIT_ERROR_SLEEP_EVENT}) {
        enter(sleep);
        turnThatWaits();
        EXPECT_EQ(calls, (Calls{"set_led(2,2,2)", "osdPrintf(0,0) No connection to encoder Cam 1(10.0.0.1)",
                                "getNextEvent(4,11,6,9,12)"}));
    }
}

TEST_F(AutoErrorSleep, ARunningPictureIsNotCovered) {
    playing(0);
    for (const State sleep : {AUTO_SLEEP_AFTER_ENCODER_REQUEST_FAILED, AUTO_WAIT_ERROR_SLEEP_EVENT}) {
        enter(sleep);
        turnThatWaits();
        EXPECT_EQ(calls, (Calls{"getNextEvent(4,11,6,9,12)"}));
    }
}

TEST_F(AutoErrorSleep, AShortPressMovesOnAfterAFailedDetection) {
    enter(AUTO_SLEEP_AFTER_ENCODER_REQUEST_FAILED);
    turn({shortPress()});
    EXPECT_EQ(state(), "AUTO_GOTO_NEXT_SOURCE");
}

TEST_F(AutoErrorSleep, TheSamePressDoesNothingInTheOtherSleep) {
    enter(AUTO_WAIT_ERROR_SLEEP_EVENT);
    turn({shortPress()});
    EXPECT_EQ(state(), "AUTO_WAIT_ERROR_SLEEP_EVENT");
    EXPECT_TRUE(fake::queue.empty());
}

TEST_F(AutoErrorSleep, TheTimerSkipsASourceThatCannotBeDetected) {
    enter(AUTO_SLEEP_AFTER_ENCODER_REQUEST_FAILED);
    turn({fake::event(EID_TIMEOUT, 70000)});
    EXPECT_EQ(state(), "AUTO_GOTO_NEXT_SOURCE");
}

TEST_F(AutoErrorSleep, TheTimerAsksForTheTimeLeftAfterACrash) {
    enter(AUTO_WAIT_ERROR_SLEEP_EVENT);
    turn({fake::event(EID_TIMEOUT, 70000)});
    EXPECT_EQ(state(), "AUTO_CHECK_FOR_TIME_LEFT_RECONNECT");
}

TEST_F(AutoErrorSleep, TheDisplayTimerIsNotTheSleepTimer) {
    for (const State sleep : {AUTO_SLEEP_AFTER_ENCODER_REQUEST_FAILED, AUTO_WAIT_ERROR_SLEEP_EVENT}) {
        enter(sleep);
        turn({fake::event(EID_TIMEOUT, 70001)});
        EXPECT_EQ(state(), stateName(sleep));
        EXPECT_TRUE(log.empty());
    }
}

TEST_F(AutoErrorSleep, ASelectionIsShown) {
    for (const State sleep : {AUTO_SLEEP_AFTER_ENCODER_REQUEST_FAILED, AUTO_WAIT_ERROR_SLEEP_EVENT}) {
        enter(sleep);
        turn({fake::event(EID_SELECT, 6)});
        EXPECT_EQ(state(), "AUTO_DIRECT_SOURCE_SELECT");
        EXPECT_EQ(machine.pendingSource, 6);
    }
}

TEST_F(AutoErrorSleep, AlarmsAreNotHandledInAutomaticMode) {
    for (const State waits :
         {AUTO_SLEEP_AFTER_ENCODER_REQUEST_FAILED, AUTO_WAIT_ERROR_SLEEP_EVENT,
          AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT, AUTO_PAUSE, SLEEP_AFTER_CRASH_DURING_PAUSE}) {
        enter(waits);
        fake::queue.clear();
        turnThatWaits({alarm(3)});
        EXPECT_EQ(queuedIds(), (std::vector<int>{EID_ALARM}));
    }
}

// The slot is 10 seconds, one more detection takes up to 5.
TEST_F(TimeLeft, IsEnoughForTheSameSourceAgain) {
    machine.sequenceStart = fake::now - 5'000'000;
    turn();
    EXPECT_EQ(state(), "REQUEST_ENCODER_TYPE");
    EXPECT_EQ(calls, Calls{});
}

TEST_F(TimeLeft, IsAMicrosecondTooShort) {
    machine.sequenceStart = fake::now - 5'000'001;
    turn();
    EXPECT_EQ(state(), "AUTO_GOTO_NEXT_SOURCE");
}

TEST_F(TimeLeft, IsNegativeWhenItIsLongOver) {
    machine.sequenceStart = fake::now - 900'000'000;
    turn();
    EXPECT_EQ(state(), "AUTO_GOTO_NEXT_SOURCE");
}

TEST_F(TimeLeft, IsNoneForASourceThatWasNeverShown) {
    machine.sequenceStart = -1;
    turn();
    EXPECT_EQ(state(), "AUTO_GOTO_NEXT_SOURCE");
}

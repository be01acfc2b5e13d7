#include "launcher/machine_test.h"

namespace {

struct Manual : MachineTest {
    Manual() {
        process.mode = MODE_MANUAL;
        machine.sourceSequence = {1, 4, 7};
        machine.sleepTimerId = 70000;
        playing(4);
        enter(MANUAL_WAIT_FOR_NEW_SELECTION);
    }
    void enterErrorSleep() {
        process.currentPID = -1;
        machine.currentSource = -1;
        enter(MANUAL_WAIT_ERROR_SLEEP_EVENT);
    }
};

const char* const waitCall = "getNextEvent(8,4,11,2,9,12)";
const Calls errorSleep{"osdPrintf(0,0) No connection to encoder Cam 4(10.0.0.4)", "set_led(2,2,2)",
                       "getNextEvent(4,11,8,6,9,12)"};

} // namespace

TEST_F(Manual, AShortPressMovesToTheNextSource) {
    turn({shortPress()});
    EXPECT_EQ(state(), "MANUAL_GOTO_NEXT_SOURCE");
    EXPECT_EQ(calls, (Calls{waitCall}));
    turn();
    EXPECT_EQ(state(), "SELECT_SOURCE_ID");
    EXPECT_EQ(calls, Calls{}); // no on-screen text is touched
    EXPECT_EQ(machine.pendingSource, 7);
    EXPECT_EQ(machine.sequencePos, 2);
}

TEST_F(Manual, TheNextSourceWrapsAtTheEnd) {
    machine.pendingSource = 7;
    enter(MANUAL_GOTO_NEXT_SOURCE);
    turn();
    EXPECT_EQ(machine.pendingSource, 1);
    EXPECT_EQ(machine.sequencePos, 0);
}

TEST_F(Manual, WithAnEmptySequenceAPressDisconnects) {
    enter(MANUAL_GOTO_NEXT_SOURCE);
    machine.sourceSequence.clear();
    turn();
    EXPECT_EQ(state(), "STOP_PLAYING");
    EXPECT_EQ(calls, (Calls{"param(0) Decoder.Connected=no"}));
    EXPECT_EQ(
        log, (Log{{7, "No sources available in this mode but a source is playing because of user select."}}));
    EXPECT_EQ(machine.sequencePos, 0);
}

TEST_F(Manual, ASelectionIsShown) {
    turn({fake::event(EID_SELECT, 6)});
    EXPECT_EQ(state(), "MANUAL_DIRECT_SOURCE_SELECT");
    EXPECT_EQ(machine.pendingSource, 6);
    turn();
    EXPECT_EQ(state(), "SELECT_SOURCE_ID");
    EXPECT_EQ(calls, Calls{});
}

TEST_F(Manual, APlayersExitIsClassified) {
    turn({childExit(currentPlayer, 9)});
    EXPECT_EQ(state(), "CURRENT_PLAYER_CRASHED_DURING_PLAYING");
    EXPECT_EQ(calls, (Calls{waitCall, "handleError(4,100,9)"}));
}

TEST_F(Manual, AnAlarmIsShownWithItsTextAndItsSourceComesNext) {
    turn({alarm(2, "door open")});
    EXPECT_EQ(state(), "MANUAL_ALARM");
    EXPECT_EQ(machine.pendingSource, 2);
    turn();
    EXPECT_EQ(state(), "SELECT_SOURCE_ID");
    EXPECT_EQ(calls, (Calls{"osdClear(1)", "osdClear(2)", "osdPrintf(1,20) ALARM: Cam 2(10.0.0.2)",
                            "osdPrintf(2,20) Message: door open"}));
}

TEST_F(Manual, AnAlarmWithoutTextHasNoMessageLine) {
    machine.alarmText = "of the alarm before";
    turn({alarm(2)});
    turn();
    EXPECT_EQ(calls, (Calls{"osdClear(1)", "osdClear(2)", "osdPrintf(1,20) ALARM: Cam 2(10.0.0.2)"}));
}

TEST_F(Manual, AnAlarmOfNoSourceIsShownWithoutNameAndAddress) {
    turn({alarm(99, "50% of %s")});
    turn();
    EXPECT_EQ(calls, (Calls{"osdClear(1)", "osdClear(2)", "osdPrintf(1,20) ALARM: ()",
                            "osdPrintf(2,20) Message: 50% of %s"}));
}

TEST_F(Manual, ASecondAlarmWithinTheDisplayTimeIsDropped) {
    turn({alarm(2, "first")});
    enter(MANUAL_WAIT_FOR_NEW_SELECTION);
    fake::now += 19'999'999;
    turn({alarm(3, "second")});
    EXPECT_EQ(state(), "MANUAL_WAIT_FOR_NEW_SELECTION");
    EXPECT_EQ(machine.pendingSource, 2);
    EXPECT_EQ(machine.alarmText, "first");
    EXPECT_TRUE(fake::queue.empty());
    fake::now += 1;
    turn({alarm(3, "third")});
    EXPECT_EQ(state(), "MANUAL_ALARM");
    EXPECT_EQ(machine.alarmText, "third");
}

TEST_F(Manual, AnAlarmSoonAfterTheOneThatConnectedIsDropped) {
    fake::setParam(0, "Decoder.SequenceMode", "manual");
    enter(CONNECT);
    turn({alarm(2, "first")});
    enter(MANUAL_WAIT_FOR_NEW_SELECTION);
    fake::now += 1'000'000;
    turn({alarm(3, "second")});
    EXPECT_EQ(state(), "MANUAL_WAIT_FOR_NEW_SELECTION");
}

TEST_F(Manual, TheErrorSleepNamesTheMissingEncoder) {
    enterErrorSleep();
    turnThatWaits();
    EXPECT_EQ(calls, errorSleep);
}

TEST_F(Manual, TheErrorSleepCoversARunningPictureToo) {
    enter(MANUAL_WAIT_ERROR_SLEEP_EVENT);
    turnThatWaits();
    EXPECT_EQ(calls, errorSleep);
}

TEST_F(Manual, TheErrorSleepEndsWithItsTimerAPressASelectionOrAnAlarm) {
    enterErrorSleep();
    turn({fake::event(EID_TIMEOUT, 70000)});
    EXPECT_EQ(state(), "REQUEST_ENCODER_TYPE"); // the same source again
    EXPECT_EQ(machine.pendingSource, 4);

    enterErrorSleep();
    turn({shortPress()});
    EXPECT_EQ(state(), "MANUAL_GOTO_NEXT_SOURCE");

    enterErrorSleep();
    turn({fake::event(EID_SELECT, 6)});
    EXPECT_EQ(state(), "MANUAL_DIRECT_SOURCE_SELECT");
    EXPECT_EQ(machine.pendingSource, 6);

    enterErrorSleep();
    turn({alarm(2)});
    EXPECT_EQ(state(), "MANUAL_ALARM");
    EXPECT_EQ(machine.pendingSource, 2);
}

TEST_F(Manual, TheErrorSleepDropsAnAlarmThatComesTooSoon) {
    machine.lastAlarmTime = fake::now - 1;
    enterErrorSleep();
    turn({alarm(2)});
    EXPECT_EQ(state(), "MANUAL_WAIT_ERROR_SLEEP_EVENT");
    EXPECT_EQ(machine.pendingSource, 4);
    EXPECT_EQ(calls, errorSleep);
}

TEST_F(Manual, APlayersExitDuringTheErrorSleepWaitsForALaterState) {
    enter(MANUAL_WAIT_ERROR_SLEEP_EVENT);
    turnThatWaits({childExit(currentPlayer)});
    EXPECT_EQ(queuedIds(), (std::vector<int>{EID_CHILD}));
}

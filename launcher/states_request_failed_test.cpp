#include "launcher/machine_test.h"

namespace {

struct RequestFailed : MachineTest {
    RequestFailed() { machine.pendingSource = 2; }
    void enterPlaying(State state) {
        playing(1);
        machine.pendingSource = 2;
        enter(state);
    }
};

} // namespace

TEST_F(RequestFailed, ARunningPlayerIsStoppedFirst) {
    for (const int mode : {MODE_AUTO, MODE_MANUAL}) {
        process.mode = mode;
        enterPlaying(REQUEST_ENCODER_FAILED);
        turn();
        EXPECT_EQ(state(), "SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED");
        EXPECT_EQ(calls, Calls{});
    }
}

TEST_F(RequestFailed, InAutomaticModeTheSourceIsSkippedAfterFourSeconds) {
    enter(REQUEST_ENCODER_FAILED);
    turn();
    EXPECT_EQ(state(), "AUTO_SLEEP_AFTER_ENCODER_REQUEST_FAILED");
    EXPECT_EQ(calls, (Calls{"setTimeout(4000)"}));
    EXPECT_EQ(machine.sleepTimerId, 65536);
}

TEST_F(RequestFailed, InManualModeTheLongSleepComesFirst) {
    process.mode = MODE_MANUAL;
    enter(REQUEST_ENCODER_FAILED);
    turn();
    EXPECT_EQ(state(), "SET_SLEEP_10_TIMER");
    EXPECT_EQ(calls, Calls{});
}

TEST_F(RequestFailed, TheLongSleepIsTenSeconds) {
    enter(SET_SLEEP_10_TIMER);
    turn();
    EXPECT_EQ(state(), "AUTO_WAIT_ERROR_SLEEP_EVENT");
    EXPECT_EQ(calls, (Calls{"setTimeout(10000)"}));
    EXPECT_EQ(machine.sleepTimerId, 65536);
    process.mode = MODE_MANUAL;
    enter(SET_SLEEP_10_TIMER);
    turn();
    EXPECT_EQ(state(), "MANUAL_WAIT_ERROR_SLEEP_EVENT");
    EXPECT_EQ(machine.sleepTimerId, 65537);
}

TEST_F(RequestFailed, TheShortSleepIsFourSecondsWhateverItsNameSays) {
    enter(SET_SLEEP_1_TIMER);
    turn();
    EXPECT_EQ(state(), "AUTO_WAIT_ERROR_SLEEP_EVENT");
    EXPECT_EQ(calls, (Calls{"setTimeout(4000)"}));
    process.mode = MODE_MANUAL;
    enter(SET_SLEEP_1_TIMER);
    turn();
    EXPECT_EQ(state(), "MANUAL_WAIT_ERROR_SLEEP_EVENT");
}

TEST_F(RequestFailed, ThePlayerIsHungUpAndMetAtItsBarrier) {
    enterPlaying(SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED);
    turn();
    EXPECT_EQ(state(), "WAIT_SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED");
    EXPECT_EQ(calls, (Calls{"signalPlayer(100,1)", "masterBarrier(1,100)"}));
    EXPECT_EQ(log, (Log{{7, "Sending HUP to current player\n"}}));
}

TEST_F(RequestFailed, ThePlayersExitIsAwaitedWhenItDoesNotArrive) {
    enterPlaying(SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED);
    fake::barrierResults = {-1};
    turn({childExit(currentPlayer, 11 << 8)});
    EXPECT_EQ(state(), "CURRENT_PLAYER_STOPPED_AFTER_REQUEST_FAILED");
    EXPECT_EQ(calls.back(), "handleError(1,100,2816)");
}

TEST_F(RequestFailed, AnotherChildsExitAtTheBarrierIsLoggedAtDebugLevel) {
    enterPlaying(SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED);
    fake::barrierResults = {-1};
    turn({childExit(555)});
    EXPECT_EQ(state(), "SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED");
    EXPECT_EQ(log.back(), (fake::LogLine{7, "SIG_CHILD from PID 555\n"}));
}

TEST_F(RequestFailed, ThePlayersExitIsClassifiedForItsOwnSource) {
    enterPlaying(WAIT_SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED);
    turn({childExit(currentPlayer)});
    EXPECT_EQ(state(), "CURRENT_PLAYER_STOPPED_AFTER_REQUEST_FAILED");
    EXPECT_EQ(calls, (Calls{"getNextEvent(2)", "handleError(1,100,0)"}));
}

TEST_F(RequestFailed, AnotherChildsExitLaterIsLoggedAsAnError) {
    enterPlaying(WAIT_SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED);
    turn({childExit(555)});
    EXPECT_EQ(state(), "WAIT_SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED");
    EXPECT_EQ(log, (Log{{3, "Unknown child event. pid=555"}}));
}

TEST_F(RequestFailed, WithThePlayerGoneTheScreenNamesTheMissingEncoder) {
    enterPlaying(CURRENT_PLAYER_STOPPED_AFTER_REQUEST_FAILED);
    turn();
    EXPECT_EQ(state(), "REQUEST_ENCODER_FAILED");
    EXPECT_EQ(calls, (Calls{"blankscreen()", "set_led(2,2,2)",
                            "osdPrintf(0,0) No connection to encoder Cam 2(10.0.0.2)",
                            "param(1) Decoder.Info.CurrentSource=-1"}));
    EXPECT_EQ(process.currentPID, -1);
    EXPECT_EQ(machine.currentSource, -1);
    EXPECT_EQ(machine.pendingSource, 2);
}

TEST_F(RequestFailed, AnIndexThatNamesNoSourceIsShownWithoutNameAndAddress) {
    enterPlaying(CURRENT_PLAYER_STOPPED_AFTER_REQUEST_FAILED);
    machine.pendingSource = 99;
    turn();
    EXPECT_EQ(calls.at(2), "osdPrintf(0,0) No connection to encoder ()");
}

TEST_F(RequestFailed, AFailedDetectionWhileAPlayerRunsStopsItBlanksTheScreenAndSleeps) {
    enterPlaying(REQUEST_ENCODER_TYPE);
    fake::cachedSources[2].entry.detectedOK = false;
    Calls all;
    for (int turns = 0; turns < 6; ++turns) {
        turn(turns == 3 ? std::vector<Event>{childExit(currentPlayer)} : std::vector<Event>{});
        all.insert(all.end(), calls.begin(), calls.end());
    }
    EXPECT_EQ(state(), "AUTO_SLEEP_AFTER_ENCODER_REQUEST_FAILED");
    EXPECT_THAT(all, testing::IsSupersetOf({"signalPlayer(100,1)", "blankscreen()",
                                            "osdPrintf(0,0) No connection to encoder Cam 2(10.0.0.2)",
                                            "setTimeout(4000)"}));
}

#include "launcher/machine_test.h"

namespace {

struct Crash : MachineTest {
    void enterSwitching(State state) {
        playing(1);
        launching(2);
        enter(state);
    }
};

const char* const nothingShown = "param(1) Decoder.Info.CurrentSource=-1";

void expectNoCurrentPlayer() {
    EXPECT_EQ(process.currentPID, -1);
    EXPECT_EQ(machine.currentSource, -1);
}

} // namespace

TEST_F(Crash, WhilePlayingTheScreenIsBlankedAndTheSourceForgotten) {
    playing(1);
    enter(CURRENT_PLAYER_CRASHED_DURING_PLAYING);
    turn();
    EXPECT_EQ(state(), "SET_SLEEP_1_TIMER");
    EXPECT_EQ(calls, (Calls{"blankscreen()", "invalidateSource(1)", nothingShown}));
    expectNoCurrentPlayer();
    EXPECT_EQ(machine.pendingSource, 1);
}

TEST_F(Crash, AFailedLaunchWithoutAPictureBlanksTheScreen) {
    launching(2);
    enter(COULD_NOT_LAUNCH_PENDING_PLAYER);
    turn();
    EXPECT_EQ(state(), "SET_SLEEP_10_TIMER");
    EXPECT_EQ(calls, (Calls{"blankscreen()", "invalidateSource(2)"}));
    EXPECT_EQ(log, (Log{{6, "Failed to launch pending player"}}));
    EXPECT_EQ(process.pendingPID, -1);
}

TEST_F(Crash, AFailedLaunchLeavesARunningPictureAlone) {
    enterSwitching(COULD_NOT_LAUNCH_PENDING_PLAYER);
    turn();
    EXPECT_EQ(state(), "SET_SLEEP_10_TIMER");
    EXPECT_EQ(calls, (Calls{"invalidateSource(2)"}));
    EXPECT_EQ(process.pendingPID, -1);
    EXPECT_EQ(process.currentPID, currentPlayer);
}

TEST_F(Crash, AFailedLaunchDuringAPauseStaysInThePause) {
    machine.sequencePaused = true;
    launching(2);
    enter(COULD_NOT_LAUNCH_PENDING_PLAYER);
    turn();
    EXPECT_EQ(state(), "CURRENT_PLAYER_CRASHED_DURING_PAUSE");
    EXPECT_EQ(calls, (Calls{"blankscreen()", "invalidateSource(2)"}));
}

TEST_F(Crash, APauseHasNoEffectInManualMode) {
    machine.sequencePaused = true;
    process.mode = MODE_MANUAL;
    launching(2);
    enter(COULD_NOT_LAUNCH_PENDING_PLAYER);
    turn();
    EXPECT_EQ(state(), "SET_SLEEP_10_TIMER");
}

TEST_F(Crash, OfTheCurrentPlayerDuringALaunchLeavesThePendingOneAlone) {
    enterSwitching(CURRENT_PLAYER_CRASHED_DURING_PENDING_LAUNCH);
    turn();
    EXPECT_EQ(state(), "WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING");
    EXPECT_EQ(calls, (Calls{nothingShown}));
    EXPECT_EQ(log, (Log{{6, "Current player exited during pending launch"}}));
    expectNoCurrentPlayer();
    EXPECT_EQ(process.pendingPID, pendingPlayer);
}

TEST_F(Crash, TheStatusReadsMinusOneUntilThePlayerLeftAloneHasStarted) {
    enterSwitching(CURRENT_PLAYER_CRASHED_DURING_PENDING_LAUNCH);
    for (int turns = 0; turns < 3; ++turns) {
        turn();
        EXPECT_EQ(fake::getParam(1, "Decoder.Info.CurrentSource"), "-1");
    }
    EXPECT_EQ(state(), "SINGLE_PLAYER_STARTED");
    turn();
    EXPECT_EQ(state(), "AUTO_START_TIMER");
    EXPECT_EQ(calls, (Calls{"param(1) Decoder.Info.CurrentSource=2"}));
    EXPECT_EQ(process.currentPID, pendingPlayer);
    EXPECT_EQ(machine.currentSource, 2);
}

TEST_F(Crash, OfTheCurrentPlayerAtTheBarrierBlanksTheScreenAndContinuesWithThePendingOne) {
    enterSwitching(CURRENT_PLAYER_CRASHED_DURING_SWITCH);
    turn();
    EXPECT_EQ(state(), "DONE_SWITCHED_PLAYER");
    EXPECT_EQ(calls, (Calls{"blankscreen()", "sleepSeconds(2)", "masterBarrier(1,200)"}));
}

TEST_F(Crash, OfBothAtTheBarrierLeavesNone) {
    enterSwitching(CURRENT_PLAYER_CRASHED_DURING_SWITCH);
    fake::barrierResults = {-1};
    turn({childExit(pendingPlayer, 9)});
    EXPECT_EQ(state(), "BOTH_PLAYERS_DOWN_AFTER_PENDING_CRASH");
    EXPECT_EQ(calls, (Calls{"blankscreen()", "sleepSeconds(2)", "masterBarrier(1,200)", "getNextEvent(2)",
                            "handleError(2,200,9)"}));
}

TEST_F(Crash, OfThePendingPlayerAtTheBarrierStopsTheCurrentOneToo) {
    enterSwitching(PENDING_PLAYER_CRASHED_STOPPING_CURRENT);
    turn();
    EXPECT_EQ(state(), "WAIT_FOR_CURRENT_PLAYER_STOP_DURING_PENDING_CRASH");
    EXPECT_EQ(calls, (Calls{"masterBarrier(1,100)"}));
    turn({childExit(currentPlayer)});
    EXPECT_EQ(state(), "BOTH_PLAYERS_DOWN_AFTER_PENDING_CRASH");
    EXPECT_EQ(calls, (Calls{"getNextEvent(2)", "handleError(1,100,0)"}));
}

TEST_F(Crash, TheCurrentPlayerMayExitInsteadOfArrivingAtItsBarrier) {
    enterSwitching(PENDING_PLAYER_CRASHED_STOPPING_CURRENT);
    fake::barrierResults = {-1};
    turn({childExit(currentPlayer, 9)});
    EXPECT_EQ(state(), "BOTH_PLAYERS_DOWN_AFTER_PENDING_CRASH");
    EXPECT_EQ(calls, (Calls{"masterBarrier(1,100)", "getNextEvent(2)", "handleError(1,100,9)"}));
}

TEST_F(Crash, AnyOtherChildIsDroppedSilently) {
    for (const State waits : {CURRENT_PLAYER_CRASHED_DURING_SWITCH, PENDING_PLAYER_CRASHED_STOPPING_CURRENT,
                              WAIT_FOR_CURRENT_PLAYER_STOP_DURING_PENDING_CRASH}) {
        enterSwitching(waits);
        fake::barrierResults = {-1};
        turn({childExit(555)});
        EXPECT_EQ(state(), stateName(waits));
        EXPECT_TRUE(log.empty());
        EXPECT_EQ(calls.back(), "getNextEvent(2)");
        fake::barrierResults.clear();
    }
}

TEST_F(Crash, WithBothPlayersDownTheLaunchHasFailed) {
    enterSwitching(BOTH_PLAYERS_DOWN_AFTER_PENDING_CRASH);
    turn();
    EXPECT_EQ(state(), "COULD_NOT_LAUNCH_PENDING_PLAYER");
    EXPECT_EQ(calls, (Calls{nothingShown}));
    expectNoCurrentPlayer();
    EXPECT_EQ(process.pendingPID, -1);
    EXPECT_EQ(machine.pendingSource, 2);
}

#include "launcher/machine_test.h"

#include "sources/source_cache.h"

namespace {

struct SingleLaunch : MachineTest {
    SingleLaunch() {
        fake::nextPlayerPid = pendingPlayer;
        machine.pendingSource = 2;
    }
    void enterLaunched(State state) {
        launching(2);
        enter(state);
    }
};

struct Switch : MachineTest {
    Switch() { fake::nextPlayerPid = pendingPlayer; }
    void enterSwitching(State state) {
        playing(1);
        launching(2);
        enter(state);
    }
};

} // namespace

TEST_F(SingleLaunch, TheStatusShowsTheSourceThatIsBeingStarted) {
    enter(LAUNCH_CURRENT_PLAYER_POS_WITH_NON_EXISTING);
    turn();
    EXPECT_EQ(state(), "WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING");
    EXPECT_EQ(calls, (Calls{"param(1) Decoder.Info.CurrentSource=2", "getSourceEntry(2)", "launchPlayer(2)",
                            "gotoPtzPreset(2)"}));
    EXPECT_EQ(process.pendingPID, pendingPlayer);
    EXPECT_EQ(machine.currentSource, -1);
}

TEST_F(SingleLaunch, AFailedLaunchTurnsNoCamera) {
    enter(LAUNCH_CURRENT_PLAYER_POS_WITH_NON_EXISTING);
    fake::onLaunchPlayer = [](SourceEntry*) { return -1; };
    turn();
    EXPECT_EQ(state(), "COULD_NOT_LAUNCH_PENDING_PLAYER");
    EXPECT_EQ(calls,
              (Calls{"param(1) Decoder.Info.CurrentSource=2", "getSourceEntry(2)", "launchPlayer(2)"}));
    EXPECT_EQ(process.pendingPID, -1);
}

TEST_F(SingleLaunch, AnEntryThatIsGoneIsAFailedLaunch) {
    enter(LAUNCH_CURRENT_PLAYER_POS_WITH_NON_EXISTING);
    fake::cachedSources.clear();
    turn();
    EXPECT_EQ(state(), "COULD_NOT_LAUNCH_PENDING_PLAYER");
    EXPECT_EQ(calls.back(), "launchPlayer(null)");
}

TEST_F(SingleLaunch, ThePlayerIsMetAtBothBarriers) {
    enterLaunched(WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING);
    turn();
    EXPECT_EQ(state(), "SINGLE_PLAYER_LAUNCHED");
    EXPECT_EQ(calls, (Calls{"masterBarrier(0,200)"}));
    turn();
    EXPECT_EQ(state(), "SINGLE_PLAYER_STARTED");
    EXPECT_EQ(calls, (Calls{"masterBarrier(1,200)"}));
}

TEST_F(SingleLaunch, APlayerThatExitsBeforeABarrierCouldNotBeLaunched) {
    for (const State waits : {WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING, SINGLE_PLAYER_LAUNCHED}) {
        enterLaunched(waits);
        fake::barrierResults = {-1};
        turn({childExit(pendingPlayer, 11 << 8)});
        EXPECT_EQ(state(), "COULD_NOT_LAUNCH_PENDING_PLAYER");
        EXPECT_EQ(Calls(calls.begin() + 1, calls.end()),
                  (Calls{"getNextEvent(2)", "handleError(2,200,2816)"}));
    }
}

TEST_F(SingleLaunch, AnyOtherChildIsDroppedSilently) {
    for (const State waits : {WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING, SINGLE_PLAYER_LAUNCHED}) {
        enterLaunched(waits);
        fake::barrierResults = {-1};
        turn({childExit(555)});
        EXPECT_EQ(state(), stateName(waits));
        EXPECT_TRUE(log.empty());
        EXPECT_EQ(calls.back(), "getNextEvent(2)");
    }
}

TEST_F(SingleLaunch, TheStartedPlayerIsTheCurrentOne) {
    enterLaunched(SINGLE_PLAYER_STARTED);
    fake::setParam(1, "Decoder.Info.CurrentSource", "2");
    turn();
    EXPECT_EQ(state(), "AUTO_START_TIMER");
    EXPECT_EQ(calls, Calls{}); // the launch has written the status already
    EXPECT_EQ(process.currentPID, pendingPlayer);
    EXPECT_EQ(process.pendingPID, -1);
    EXPECT_EQ(machine.currentSource, 2);
}

TEST_F(SingleLaunch, InManualModeItThenWaitsForASelection) {
    process.mode = MODE_MANUAL;
    enterLaunched(SINGLE_PLAYER_STARTED);
    turn();
    EXPECT_EQ(state(), "MANUAL_WAIT_FOR_NEW_SELECTION");
}

TEST_F(Switch, ThePendingPlayerStartsBehindTheRunningPicture) {
    playing(1);
    machine.pendingSource = 2;
    enter(LAUNCH_PENDING_PLAYER);
    turn();
    EXPECT_EQ(state(), "WAIT_LAUNCHED_PENDING_PLAYER");
    EXPECT_EQ(calls, (Calls{"getSourceEntry(2)", "launchPlayer(2)", "gotoPtzPreset(2)"}));
    EXPECT_EQ(process.pendingPID, pendingPlayer);
    EXPECT_EQ(process.currentPID, currentPlayer);
    EXPECT_EQ(machine.currentSource, 1);
    EXPECT_EQ(fake::getParam(1, "Decoder.Info.CurrentSource"), "1");
}

TEST_F(Switch, AFailedLaunchKeepsTheCurrentPictureAndSleepsTenSeconds) {
    playing(1);
    machine.pendingSource = 2;
    enter(LAUNCH_PENDING_PLAYER);
    fake::onLaunchPlayer = [](SourceEntry*) { return -1; };
    turn();
    EXPECT_EQ(state(), "COULD_NOT_LAUNCH_PENDING_PLAYER");
    turn();
    EXPECT_EQ(calls, (Calls{"invalidateSource(2)"}));
    turn();
    EXPECT_EQ(calls, (Calls{"setTimeout(10000)"}));
    turnThatWaits();
    EXPECT_EQ(state(), "AUTO_WAIT_ERROR_SLEEP_EVENT");
    EXPECT_EQ(calls, (Calls{"getNextEvent(4,11,6,9,12)"})); // no message over the picture
    EXPECT_EQ(process.currentPID, currentPlayer);
    EXPECT_EQ(machine.currentSource, 1);
}

TEST_F(Switch, OnceThePendingPlayerIsReadyTheCurrentOneIsHungUp) {
    enterSwitching(WAIT_LAUNCHED_PENDING_PLAYER);
    turn();
    EXPECT_EQ(state(), "WAIT_SHUTDOWN_CURRENT_PLAYER");
    EXPECT_EQ(calls, (Calls{"masterBarrier(0,200)", "signalPlayer(100,1)"}));
    EXPECT_EQ(log, (Log{{7, "Sending HUP to current player\n"}}));
}

TEST_F(Switch, BothMeetWithTheCurrentPlayerNamedFirst) {
    enterSwitching(WAIT_SHUTDOWN_CURRENT_PLAYER);
    turn();
    EXPECT_EQ(state(), "SWITCH_PLAYER");
    EXPECT_EQ(calls, (Calls{"masterBarrier(1,100,200)"}));
}

TEST_F(Switch, TheCurrentPlayersExitCompletesIt) {
    enterSwitching(SWITCH_PLAYER);
    turn({childExit(currentPlayer)});
    EXPECT_EQ(state(), "DONE_SWITCHED_PLAYER");
    EXPECT_EQ(calls, (Calls{"getNextEvent(2)", "handleError(1,100,0)"}));
    turn();
    EXPECT_EQ(state(), "AUTO_START_TIMER");
    EXPECT_EQ(calls, (Calls{"param(1) Decoder.Info.CurrentSource=2"}));
    EXPECT_EQ(process.currentPID, pendingPlayer);
    EXPECT_EQ(process.pendingPID, -1);
    EXPECT_EQ(machine.currentSource, 2);
}

TEST_F(Switch, InManualModeItThenWaitsForASelection) {
    process.mode = MODE_MANUAL;
    enterSwitching(DONE_SWITCHED_PLAYER);
    turn();
    EXPECT_EQ(state(), "MANUAL_WAIT_FOR_NEW_SELECTION");
}

TEST_F(Switch, AnUnrelatedChildCompletesItAsIfItWereTheCurrentPlayer) {
    enterSwitching(SWITCH_PLAYER);
    turn({childExit(555, 3)});
    EXPECT_EQ(state(), "DONE_SWITCHED_PLAYER");
    EXPECT_EQ(calls, (Calls{"getNextEvent(2)", "handleError(1,555,3)"}));
    EXPECT_TRUE(log.empty());
}

TEST_F(Switch, ThePendingPlayersExitAtTheLastMomentStopsBoth) {
    enterSwitching(SWITCH_PLAYER);
    turn({childExit(pendingPlayer, 9)});
    EXPECT_EQ(state(), "WAIT_FOR_CURRENT_PLAYER_STOP_DURING_PENDING_CRASH");
    EXPECT_EQ(calls, (Calls{"getNextEvent(2)", "handleError(2,200,9)"}));
}

TEST_F(Switch, AFailedWaitIsNotAnExit) {
    enterSwitching(SWITCH_PLAYER);
    fake::takeResult = -1;
    turn();
    EXPECT_EQ(state(), "SWITCH_PLAYER");
    EXPECT_EQ(calls, (Calls{"getNextEvent(2)", "sleepSeconds(1)"}));
}

TEST_F(Switch, EitherPlayerMayExitBeforeTheBarrier) {
    struct Row {
        State state;
        int pid;
        const char* handled;
        const char* next;
    };
    const Row rows[] = {
        {WAIT_LAUNCHED_PENDING_PLAYER, pendingPlayer, "handleError(2,200,9)",
         "COULD_NOT_LAUNCH_PENDING_PLAYER"},
        {WAIT_LAUNCHED_PENDING_PLAYER, currentPlayer, "handleError(1,100,9)",
         "CURRENT_PLAYER_CRASHED_DURING_PENDING_LAUNCH"},
        {WAIT_SHUTDOWN_CURRENT_PLAYER, pendingPlayer, "handleError(2,200,9)",
         "PENDING_PLAYER_CRASHED_STOPPING_CURRENT"},
        {WAIT_SHUTDOWN_CURRENT_PLAYER, currentPlayer, "handleError(1,100,9)",
         "CURRENT_PLAYER_CRASHED_DURING_SWITCH"},
    };
    for (const Row& row : rows) {
        enterSwitching(row.state);
        fake::barrierResults = {-1};
        turn({childExit(row.pid, 9)});
        EXPECT_EQ(state(), row.next);
        EXPECT_EQ(Calls(calls.begin() + 1, calls.end()), (Calls{"getNextEvent(2)", row.handled}));
        EXPECT_TRUE(log.empty());
    }
}

TEST_F(Switch, AnyOtherChildBeforeTheBarrierIsDroppedSilently) {
    for (const State waits : {WAIT_LAUNCHED_PENDING_PLAYER, WAIT_SHUTDOWN_CURRENT_PLAYER}) {
        enterSwitching(waits);
        fake::barrierResults = {-1};
        turn({childExit(555)});
        EXPECT_EQ(state(), stateName(waits));
        EXPECT_TRUE(log.empty());
        EXPECT_EQ(calls.back(), "getNextEvent(2)");
    }
}

TEST_F(Switch, OnlyChildEventsAreTakenMeanwhile) {
    enterSwitching(SWITCH_PLAYER);
    turnThatWaits(
        {fake::event(EID_SELECT, 3), fake::event(EID_LOCK), shortPress(), fake::event(EID_TIMEOUT, 1)});
    EXPECT_EQ(fake::queue.size(), 4U);
}

#include "launcher/machine_test.h"

namespace {

struct Pause : MachineTest {
    Pause() {
        machine.sourceSequence = {1, 4, 7};
        playing(4);
        enter(AUTO_PAUSE);
    }
};

struct CrashDuringPause : MachineTest {
    CrashDuringPause() {
        machine.pendingSource = 1;
        machine.sequencePaused = true;
        machine.sleepTimerId = 70000;
    }
};

const char* const pausedText = "osdPrintf(1,0) Sequence paused";
const char* const waitCall = "getNextEvent(4,11,2,9,12)";
const char* const detecting = "osdPrintf(0,0) Automatically detecting encoder and connection type for Cam 1";

} // namespace

TEST_F(Pause, ShowsItsMessageEachTimeItRuns) {
    EXPECT_FALSE(machine.sequencePaused);
    turnThatWaits();
    EXPECT_EQ(calls, (Calls{pausedText, waitCall}));
    EXPECT_TRUE(machine.sequencePaused);
    turn({childExit(555)});
    EXPECT_EQ(calls, (Calls{pausedText, waitCall}));
    EXPECT_TRUE(machine.sequencePaused);
}

TEST_F(Pause, AShortPressResumesByMovingOn) {
    turn({shortPress()});
    EXPECT_EQ(state(), "AUTO_GOTO_NEXT_SOURCE");
    EXPECT_EQ(calls, (Calls{pausedText, waitCall, "osdClear(1)"}));
    EXPECT_FALSE(machine.sequencePaused);
}

TEST_F(Pause, ALongPressEndsItAndDisconnects) {
    turn({longPress()});
    EXPECT_EQ(state(), "STOP_PLAYING");
    EXPECT_EQ(calls, (Calls{pausedText, waitCall, "osdClear(1)", "param(0) Decoder.Connected=no"}));
    EXPECT_FALSE(machine.sequencePaused);
}

TEST_F(Pause, ASelectionEndsIt) {
    turn({fake::event(EID_SELECT, 6)});
    EXPECT_EQ(state(), "AUTO_DIRECT_SOURCE_SELECT");
    EXPECT_EQ(calls, (Calls{pausedText, waitCall, "osdClear(1)"}));
    EXPECT_FALSE(machine.sequencePaused);
    EXPECT_EQ(machine.pendingSource, 6);
}

TEST_F(Pause, ALockAndTheEndOfTheConnectionEndIt) {
    turn({fake::event(EID_LOCK)});
    EXPECT_EQ(state(), "STOP_PLAYING");
    EXPECT_FALSE(machine.sequencePaused);

    enter(AUTO_PAUSE);
    fake::queue.clear();
    fake::setParam(0, "Decoder.Connected", "no");
    turn({fake::event(EID_CONNECTPROPERTYCHANGED)});
    EXPECT_EQ(state(), "STOP_PLAYING");
    EXPECT_FALSE(machine.sequencePaused);
}

TEST_F(Pause, ADroppedEventDoesNotEndIt) {
    turn({fake::event(EID_CONNECTPROPERTYCHANGED)});
    EXPECT_EQ(state(), "AUTO_PAUSE");
    EXPECT_TRUE(machine.sequencePaused);
}

TEST_F(Pause, AnEarlierTimerStaysQueuedAndIsDroppedLater) {
    machine.sequenceTimerId = 70000;
    turnThatWaits({fake::event(EID_TIMEOUT, 70000)});
    EXPECT_EQ(queuedIds(), (std::vector<int>{EID_TIMEOUT}));
    turn({shortPress()}); // resumes
    turn();               // next source
    enter(AUTO_START_TIMER);
    turn();
    EXPECT_EQ(state(), "AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT");
    turn();
    EXPECT_EQ(state(), "AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT");
    EXPECT_EQ(log, (Log{{7, "Unknown timer ID, probably from previous crashed/interrupted PID. ID=70000"}}));
}

TEST_F(Pause, ThePlayersExitLeavesItPaused) {
    turn({childExit(currentPlayer, 9)});
    EXPECT_EQ(state(), "CURRENT_PLAYER_CRASHED_DURING_PAUSE");
    EXPECT_EQ(calls, (Calls{pausedText, waitCall, "handleError(4,100,9)"}));
    EXPECT_TRUE(machine.sequencePaused);
    turn();
    EXPECT_EQ(state(), "SLEEP_AFTER_CRASH_DURING_PAUSE");
    EXPECT_EQ(calls, (Calls{"blankscreen()", "setTimeout(4000)", "invalidateSource(4)",
                            "param(1) Decoder.Info.CurrentSource=-1"}));
    EXPECT_EQ(machine.sleepTimerId, 65536);
    EXPECT_EQ(process.currentPID, -1);
    EXPECT_EQ(machine.currentSource, -1);
}

TEST_F(CrashDuringPause, AfterAFailedRelaunchThereIsNoCurrentSourceToForget) {
    enter(CURRENT_PLAYER_CRASHED_DURING_PAUSE);
    turn();
    EXPECT_EQ(calls.at(2), "invalidateSource(-1)");
}

TEST_F(CrashDuringPause, TheMissingEncoderIsNamed) {
    enter(SLEEP_AFTER_CRASH_DURING_PAUSE);
    turnThatWaits();
    EXPECT_EQ(calls, (Calls{"set_led(2,2,2)", "osdPrintf(0,0) No connection to encoder Cam 1(10.0.0.1)",
                            "getNextEvent(4,11,6,9,12)"}));
    playing(1);
    turnThatWaits();
    EXPECT_EQ(calls, (Calls{"getNextEvent(4,11,6,9,12)"}));
}

TEST_F(CrashDuringPause, APressASelectionAndTheTimerEndTheSleep) {
    enter(SLEEP_AFTER_CRASH_DURING_PAUSE);
    turn({shortPress()});
    EXPECT_EQ(state(), "AUTO_GOTO_NEXT_SOURCE");

    enter(SLEEP_AFTER_CRASH_DURING_PAUSE);
    turn({fake::event(EID_SELECT, 6)});
    EXPECT_EQ(state(), "AUTO_DIRECT_SOURCE_SELECT");
    EXPECT_EQ(machine.pendingSource, 6);

    enter(SLEEP_AFTER_CRASH_DURING_PAUSE);
    turn({fake::event(EID_TIMEOUT, 70000)});
    EXPECT_EQ(state(), "REQUEST_ENCODER_AFTER_CRASH_DURING_PAUSE");
}

TEST_F(CrashDuringPause, TheSourceIsDetectedAgainWithoutReadingTheQueue) {
    enter(REQUEST_ENCODER_AFTER_CRASH_DURING_PAUSE);
    turn({fake::event(EID_FLUSHCACHE), shortPress()});
    EXPECT_EQ(state(), "LAUNCH_CURRENT_PLAYER_POS_WITH_NON_EXISTING");
    EXPECT_EQ(calls, (Calls{"set_led(2,3,3)", "osdClear(0)", detecting, "getSourceEntry(1)", "osdClear(0)"}));
    EXPECT_EQ(fake::queue.size(), 2U);
}

TEST_F(CrashDuringPause, AFailedDetectionSleepsAgain) {
    for (const bool interrupted : {false, true}) {
        fake::cachedSources[1].entry.detectedOK = false;
        fake::cachedSources[1].interrupted = interrupted;
        enter(REQUEST_ENCODER_AFTER_CRASH_DURING_PAUSE);
        turn();
        EXPECT_EQ(state(), "SLEEP_AFTER_CRASH_DURING_PAUSE");
        EXPECT_EQ(Calls(calls.end() - 2, calls.end()), (Calls{"__res_init()", "setTimeout(4000)"}));
        EXPECT_EQ(log, (Log{{7, "Flushing DNS-cache"}}));
        EXPECT_EQ(machine.sleepTimerId, fake::lastTimerId);
    }
}

TEST_F(CrashDuringPause, ACurrentPlayerThatShouldNotBeThereIsReported) {
    playing(0);
    machine.pendingSource = 1;
    enter(REQUEST_ENCODER_AFTER_CRASH_DURING_PAUSE);
    turn();
    EXPECT_EQ(state(), "LAUNCH_CURRENT_PLAYER_POS_WITH_NON_EXISTING");
    EXPECT_EQ(log, (Log{{2, "currentPID is set but should not be in REQUEST_AFTER_PAUSE_CRASH."}}));
    EXPECT_EQ(calls, (Calls{"osdClear(0)", "getSourceEntry(1)", "osdClear(0)"}));
}

TEST_F(CrashDuringPause, TheRelaunchedSourceIsStillPaused) {
    enter(REQUEST_ENCODER_AFTER_CRASH_DURING_PAUSE);
    for (int turns = 0; turns < 6; ++turns)
        turn();
    EXPECT_EQ(state(), "AUTO_PAUSE");
    EXPECT_EQ(machine.currentSource, 1);
    EXPECT_TRUE(machine.sequencePaused);
}

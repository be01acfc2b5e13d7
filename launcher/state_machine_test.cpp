#include "launcher/machine_test.h"

namespace {

using StateMachine = MachineTest;

const char* const transitionText = "\033[1;34mState transition: START_UL(1) -> CONNECT(2)\033[0m";

} // namespace

TEST_F(StateMachine, StartsAtStartUlWithNothingShown) {
    resetWorld();
    startMachine();
    EXPECT_EQ(state(), "START_UL");
    EXPECT_EQ(fake::calls, (Calls{"param(1) Decoder.Info.CurrentSource=-1"}));
    EXPECT_EQ(machine.currentSource, -1);
    EXPECT_EQ(machine.pendingSource, -1);
    EXPECT_EQ(machine.sequencePos, -1);
    EXPECT_TRUE(machine.sourceSequence.empty());
    EXPECT_EQ(machine.sequenceTimerId, 0);
    EXPECT_EQ(machine.sleepTimerId, 0);
    EXPECT_EQ(machine.lockTimerId, 0);
    EXPECT_FALSE(machine.sequencePaused);
    EXPECT_EQ(machine.sequenceStart, 0);
    EXPECT_EQ(machine.autoDetectTimeout, 10000000);
    EXPECT_EQ(machine.alarmText, "");
}

TEST_F(StateMachine, TheLastAlarmIsOneDisplayTimeAgoAtTheStart) {
    fake::now = 50'000'000;
    fake::setParam(0, "Alarm.DisplayTime", "20");
    startMachine();
    EXPECT_EQ(machine.lastAlarmTime, 30'000'000);
}

TEST_F(StateMachine, BeforeTheStartTheStateIsNull) {
    process.verbosity = 1;
    fake::log.clear();
    startMachine();
    EXPECT_EQ(fake::log, (Log{{7, "\033[1;34mState transition: NULL(0) -> START_UL(1)\033[0m"}}));
}

TEST_F(StateMachine, ATransitionIsLoggedInColourWhenVerbose) {
    enter(START_UL);
    process.verbosity = 1;
    setState(CONNECT);
    EXPECT_EQ(fake::log, (Log{{7, transitionText}}));
    EXPECT_EQ(state(), "CONNECT");
}

TEST_F(StateMachine, ATransitionToTheSameStateIsLoggedToo) {
    enter(LOCKED);
    process.verbosity = 2;
    setState(LOCKED);
    EXPECT_EQ(fake::log, (Log{{7, "\033[1;34mState transition: LOCKED(5) -> LOCKED(5)\033[0m"}}));
}

TEST_F(StateMachine, WithoutVerbosityNothingIsLoggedButTheStateChanges) {
    enter(START_UL);
    setState(CONNECT);
    EXPECT_TRUE(fake::log.empty());
    EXPECT_EQ(state(), "CONNECT");
}

TEST_F(StateMachine, AnIllegalStateIsLoggedOnEveryTurnAndNotRepaired) {
    for (const int illegal : {0, 52, -1, 1000000}) {
        setState(illegal);
        fake::log.clear();
        runState();
        runState();
        EXPECT_EQ(fake::log, (Log{{2, "Illegal state"}, {2, "Illegal state"}}));
        EXPECT_EQ(machine.currentState, illegal);
    }
}

TEST_F(StateMachine, AnIllegalStateHasNoNameInTheTransitionLog) {
    enter(START_UL);
    process.verbosity = 1;
    setState(52);
    setState(STATE_NULL);
    EXPECT_EQ(fake::log, (Log{{7, "\033[1;34mState transition: START_UL(1) -> ?(52)\033[0m"},
                              {7, "\033[1;34mState transition: ?(52) -> NULL(0)\033[0m"}}));
}

TEST_F(StateMachine, TheLoopRunsStateAfterStateUntilItIsStopped) {
    fake::setParam(0, "Decoder.AutoConnect", "yes");
    EXPECT_THROW(stateMachine(), fake::WouldBlock);
    EXPECT_EQ(state(), "AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT");
}

TEST_F(StateMachine, TheFirstPictureIsReachedThroughTheSingleLaunch) {
    fake::setParam(0, "Decoder.AutoConnect", "yes");
    for (const char* mode : {"auto", "manual"}) {
        fake::setParam(0, "Decoder.SequenceMode", mode);
        process.currentPID = -1;
        startMachine();
        std::vector<std::string> path;
        EXPECT_THROW(
            for (;;) {
                path.push_back(state());
                runState();
            },
            fake::WouldBlock);
        std::vector<std::string> expected{"START_UL",
                                          "CONNECT",
                                          "REQUEST_ENCODER_TYPE",
                                          "LAUNCH_CURRENT_PLAYER_POS_WITH_NON_EXISTING",
                                          "WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING",
                                          "SINGLE_PLAYER_LAUNCHED",
                                          "SINGLE_PLAYER_STARTED"};
        if (mode == std::string("auto"))
            expected.insert(expected.end(), {"AUTO_START_TIMER", "AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT"});
        else
            expected.emplace_back("MANUAL_WAIT_FOR_NEW_SELECTION");
        EXPECT_EQ(path, expected);
    }
}

TEST_F(StateMachine, ARestartForgetsEverythingTheMachineKnew) {
    enter(AUTO_PAUSE);
    machine.sequencePaused = true;
    machine.alarmText = "fire";
    startMachine();
    EXPECT_FALSE(machine.sequencePaused);
    EXPECT_EQ(machine.alarmText, "");
    EXPECT_TRUE(machine.sources.empty());
}

TEST_F(StateMachine, ARecordLookUpIsSafeForEveryIndexAnEventMayCarry) {
    enter(DISCONNECTED);
    EXPECT_EQ(sourceValue(3, "Name"), "Cam 3");
    EXPECT_EQ(sourceValue(3, "NAME"), "Cam 3");
    EXPECT_EQ(sourceValue(3, "PTZ"), "");
    for (const int bad : {-1, -5, 8, 99, 2147483647, -2147483647 - 1})
        EXPECT_EQ(sourceValue(bad, "Name"), "") << bad;
}

TEST_F(StateMachine, ADisplayTimeIsReadAsDecimalSecondsWithinAnIntsLimits) {
    const std::vector<std::pair<const char*, std::int64_t>> rows{
        {"10", 10}, {"", 0}, {"x", 0}, {"7s", 7}, {"010", 10}, {"99999999999999999999", 2147483647},
        {"-3", -3}};
    for (const auto& [text, seconds] : rows) {
        fake::sources[1]["DisplayTime"] = text;
        enter(DISCONNECTED);
        EXPECT_EQ(displaySeconds(1), seconds) << text;
    }
    EXPECT_EQ(displaySeconds(99), 0);
}

#include "launcher/machine_test.h"

namespace {

using StartUl = MachineTest;
using Connect = MachineTest;

struct RequestEncoderType : MachineTest {
    RequestEncoderType() {
        machine.pendingSource = 1;
        enter(REQUEST_ENCODER_TYPE);
    }
    void known(int source) const { fake::cachedSources[source].detected = true; }
};

const char* const detecting = "osdPrintf(0,0) Automatically detecting encoder and connection type for Cam 1";

Calls connectCalls(const Calls& more) {
    Calls all{"param(1) Decoder.Info.Connected=yes", "param(1) Decoder.Info.CurrentSource=-1"};
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

} // namespace

TEST_F(StartUl, ConnectsAtStartWhenItIsConfigured) {
    fake::setParam(0, "Decoder.AutoConnect", "yes");
    enter(START_UL);
    turn({fake::event(EID_SELECT, 1), fake::event(EID_LOCK)});
    EXPECT_EQ(state(), "CONNECT");
    EXPECT_EQ(calls, (Calls{"flushEventQueue()", "param(0) Decoder.Connected=yes"}));
    EXPECT_TRUE(fake::queue.empty());
}

TEST_F(StartUl, StaysDisconnectedOtherwise) {
    for (const char* text : {"no", "", "YES", "1"}) {
        fake::setParam(0, "Decoder.AutoConnect", text);
        enter(START_UL);
        turn();
        EXPECT_EQ(state(), "DISCONNECTED") << text;
        EXPECT_EQ(calls, (Calls{"flushEventQueue()", "param(0) Decoder.Connected=no"}));
    }
}

TEST_F(Connect, PicksTheFirstSourceOfTheMode) {
    fake::sources[0]["AutoEnabled"] = "no";
    machine.sequencePaused = true;
    machine.sequenceStart = 5;
    enter(CONNECT);
    turn();
    EXPECT_EQ(state(), "REQUEST_ENCODER_TYPE");
    EXPECT_EQ(calls, connectCalls({"peekNextEvent(11)"}));
    EXPECT_EQ(log, (Log{{7, "Found 8 sources"}}));
    EXPECT_EQ(machine.pendingSource, 1);
    EXPECT_EQ(machine.sequencePos, 0);
    EXPECT_EQ(machine.sourceSequence, (std::vector<int>{1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(machine.sequenceStart, -1);
    EXPECT_EQ(machine.autoDetectTimeout, 5'000'000);
    EXPECT_FALSE(machine.sequencePaused);
}

TEST_F(Connect, ForgetsEarlierPlayersAndSources) {
    enter(CONNECT);
    playing(3);
    launching(4);
    turn();
    EXPECT_EQ(process.currentPID, -1);
    EXPECT_EQ(process.pendingPID, -1);
    EXPECT_EQ(machine.currentSource, -1);
    EXPECT_EQ(machine.pendingSource, 0);
}

TEST_F(Connect, TakesTheManualSourcesInManualMode) {
    fake::setParam(0, "Decoder.SequenceMode", "manual");
    for (int source : {0, 1, 2, 4, 5, 6})
        fake::sources[static_cast<std::size_t>(source)]["ManualEnabled"] = "no";
    enter(CONNECT);
    turn();
    EXPECT_EQ(getMode(), MODE_MANUAL);
    EXPECT_EQ(machine.sourceSequence, (std::vector<int>{3, 7}));
    EXPECT_EQ(machine.pendingSource, 3);
    EXPECT_EQ(calls, connectCalls({"peekNextEvent(8)", "peekNextEvent(11)"}));
}

TEST_F(Connect, AnotherSpellingOfTheModeIsIllegalAndKeepsTheMode) {
    for (const int mode : {MODE_AUTO, MODE_MANUAL}) {
        process.mode = mode;
        fake::setParam(0, "Decoder.SequenceMode", "Auto");
        enter(CONNECT);
        turn();
        EXPECT_EQ(getMode(), mode);
        EXPECT_EQ(log.front(), (fake::LogLine{2, "Illegal mode 'Auto' in Decoder.SequenceMode!"}));
    }
}

TEST_F(Connect, ASourceWithoutAddressIsNeverInTheSequence) {
    fake::sources[0]["Address"] = "";
    fake::sources[2].erase("Address");
    fake::sources[3]["AutoEnabled"] = "YES";
    enter(CONNECT);
    turn();
    EXPECT_EQ(machine.sourceSequence, (std::vector<int>{1, 4, 5, 6, 7}));
}

TEST_F(Connect, WithoutAUsableSourceItGivesUpWithAMessage) {
    fake::sources.clear();
    enter(CONNECT);
    turn({fake::event(EID_LOCK)});
    EXPECT_EQ(state(), "DISCONNECTED");
    EXPECT_EQ(calls, connectCalls({"peekNextEvent(11)",
                                   "osdPrintf(0,0) No sources available in selected sequence mode",
                                   "sleepSeconds(2)", "param(0) Decoder.Connected=no", "flushEventQueue()"}));
    EXPECT_EQ(log, (Log{{7, "Found 0 sources"}, {3, "No sources available in this mode."}}));
    EXPECT_TRUE(fake::queue.empty());
}

TEST_F(Connect, ASelectThatWokeTheMachineComesFirst) {
    for (const char* mode : {"auto", "manual"}) {
        fake::setParam(0, "Decoder.SequenceMode", mode);
        enter(CONNECT);
        turn({fake::event(EID_SELECT, 6)});
        EXPECT_EQ(state(), "REQUEST_ENCODER_TYPE");
        EXPECT_EQ(machine.pendingSource, 6);
        EXPECT_TRUE(fake::queue.empty());
    }
}

TEST_F(Connect, ASelectIsHonouredEvenWithoutASourceInTheMode) {
    for (SourceParams& source : fake::sources)
        source["AutoEnabled"] = "no";
    enter(CONNECT);
    turn({fake::event(EID_SELECT, 6)});
    EXPECT_EQ(state(), "REQUEST_ENCODER_TYPE");
    EXPECT_EQ(machine.pendingSource, 6);
}

TEST_F(Connect, ASelectOfMinusOneIsNoChoice) {
    enter(CONNECT);
    turn({fake::event(EID_SELECT, -1)});
    EXPECT_EQ(machine.pendingSource, 0);
    EXPECT_EQ(state(), "REQUEST_ENCODER_TYPE");
}

TEST_F(Connect, AnAlarmThatWokeTheMachineIsShownFirstInManualMode) {
    fake::setParam(0, "Decoder.SequenceMode", "manual");
    enter(CONNECT);
    turn({alarm(5, "door open")});
    EXPECT_EQ(state(), "REQUEST_ENCODER_TYPE");
    EXPECT_EQ(machine.pendingSource, 5);
    EXPECT_EQ(machine.alarmText, "door open");
    EXPECT_EQ(machine.lastAlarmTime, fake::now);
    EXPECT_EQ(calls, connectCalls({"peekNextEvent(8)", "osdClear(1)", "osdClear(2)",
                                   "osdPrintf(1,20) ALARM: Cam 5(10.0.0.5)",
                                   "osdPrintf(2,20) Message: door open", "peekNextEvent(11)"}));
}

TEST_F(Connect, ASelectWinsOverAnAlarmThatCameWithIt) {
    fake::setParam(0, "Decoder.SequenceMode", "manual");
    enter(CONNECT);
    process.verbosity = 1;
    turn({fake::event(EID_SELECT, 3), alarm(5)});
    EXPECT_EQ(machine.pendingSource, 3);
    EXPECT_EQ(calls.at(5), "osdPrintf(1,20) ALARM: Cam 5(10.0.0.5)");
    EXPECT_TRUE(fake::queue.empty());
    EXPECT_EQ(log.back().text, "\033[1;34mState transition: CONNECT(2) -> REQUEST_ENCODER_TYPE(6)\033[0m");
}

TEST_F(Connect, AnAlarmStaysQueuedInAutomaticMode) {
    enter(CONNECT);
    turn({alarm(5)});
    EXPECT_EQ(machine.pendingSource, 0);
    EXPECT_EQ(queuedIds(), (std::vector<int>{EID_ALARM}));
}

TEST_F(RequestEncoderType, DetectsAnUnknownSourceAndTellsTheUser) {
    turn();
    EXPECT_EQ(state(), "LAUNCH_CURRENT_PLAYER_POS_WITH_NON_EXISTING");
    EXPECT_EQ(calls, (Calls{"set_led(2,3,3)", "osdClear(0)", detecting, "getSourceEntry(1)", "osdClear(0)",
                            "peekNextEvent(10,4)"}));
    EXPECT_TRUE(log.empty());
}

TEST_F(RequestEncoderType, AKnownSourceNeedsNoMessage) {
    known(1);
    turn();
    EXPECT_EQ(calls, (Calls{"set_led(2,3,3)", "osdClear(0)", "getSourceEntry(1)", "osdClear(0)",
                            "peekNextEvent(10,4)"}));
}

TEST_F(RequestEncoderType, InAutomaticModeARunningPictureIsNotCovered) {
    playing(0);
    machine.pendingSource = 1;
    turn();
    EXPECT_EQ(state(), "LAUNCH_PENDING_PLAYER");
    EXPECT_EQ(calls, (Calls{"osdClear(0)", "getSourceEntry(1)", "osdClear(0)", "peekNextEvent(10,4)"}));
}

TEST_F(RequestEncoderType, InManualModeTheUserIsToldOnScreenAndOnStandardOutput) {
    process.mode = MODE_MANUAL;
    for (const bool shown : {false, true}) {
        enter(REQUEST_ENCODER_TYPE);
        if (shown)
            playing(0);
        machine.pendingSource = 1;
        fake::cachedSources[1].detected = false;
        testing::internal::CaptureStdout();
        turn();
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "Source name: 'Cam 1'\n");
        Calls expected{detecting, "getSourceEntry(1)", "osdClear(0)", "peekNextEvent(10,4)"};
        if (!shown)
            expected.insert(expected.begin(), "set_led(2,3,3)");
        EXPECT_EQ(calls, expected);
    }
}

TEST_F(RequestEncoderType, InManualModeAKnownSourceNeedsNoMessage) {
    process.mode = MODE_MANUAL;
    known(1);
    testing::internal::CaptureStdout();
    turn();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(calls, (Calls{"set_led(2,3,3)", "getSourceEntry(1)", "osdClear(0)", "peekNextEvent(10,4)"}));
}

TEST_F(RequestEncoderType, AFailedDetectionReadsTheResolverConfigurationAgain) {
    fake::cachedSources[1].entry.detectedOK = false;
    turn();
    EXPECT_EQ(state(), "REQUEST_ENCODER_FAILED");
    EXPECT_EQ(log, (Log{{7, "Flushing DNS-cache"}}));
    EXPECT_EQ(calls.back(), "__res_init()");
}

TEST_F(RequestEncoderType, AnInterruptedDetectionFailed) {
    fake::cachedSources[1].interrupted = true;
    turn();
    EXPECT_EQ(state(), "REQUEST_ENCODER_FAILED");
}

TEST_F(RequestEncoderType, AnIndexThatNamesNoSourceFailsLikeAnyOther) {
    for (const int source : {99, -5, -1}) {
        enter(REQUEST_ENCODER_TYPE);
        machine.pendingSource = source;
        turn();
        EXPECT_EQ(state(), "REQUEST_ENCODER_FAILED") << source;
        EXPECT_EQ(calls.at(2), "osdPrintf(0,0) Automatically detecting encoder and connection type for ");
    }
}

TEST_F(RequestEncoderType, ACacheFlushComesBeforeTheLaunch) {
    turn({fake::event(EID_FLUSHCACHE)});
    EXPECT_EQ(state(), "FLUSH_CACHE_CONNECTED");
    EXPECT_EQ(calls.back(), "peekNextEvent(10,4)");
}

TEST_F(RequestEncoderType, ACacheFlushComesBeforeTheFailureToo) {
    fake::cachedSources[1].interrupted = true;
    turn({fake::event(EID_FLUSHCACHE)});
    EXPECT_EQ(state(), "FLUSH_CACHE_CONNECTED");
    EXPECT_TRUE(log.empty());
}

TEST_F(RequestEncoderType, AShortPressPausesOnTheSourceThatWasPlaying) {
    machine.sourceSequence = {1, 4, 7};
    const std::vector<std::pair<int, int>> rows{{4, 1}, {7, 4}, {1, 7}}; // pending, the one before it
    for (const auto& [pending, before] : rows) {
        enter(REQUEST_ENCODER_TYPE);
        playing(before);
        machine.pendingSource = pending;
        turn({shortPress()});
        EXPECT_EQ(state(), "AUTO_PAUSE");
        EXPECT_EQ(machine.pendingSource, before);
        EXPECT_EQ(machine.sourceSequence.at(static_cast<std::size_t>(machine.sequencePos)), before);
        EXPECT_EQ(calls.back(), "osdClear(0)");
    }
}

TEST_F(RequestEncoderType, APauseBeforeASourceOutsideTheSequenceKeepsThePosition) {
    machine.sourceSequence = {1, 4, 7};
    playing(4);
    machine.sequencePos = 1;
    machine.pendingSource = 5;
    turn({shortPress()});
    EXPECT_EQ(state(), "AUTO_PAUSE");
    EXPECT_EQ(machine.sequencePos, 1);
    EXPECT_EQ(machine.pendingSource, 4);
}

TEST_F(RequestEncoderType, APauseWithoutAPositionStaysOnTheSourceThatIsShown) {
    machine.sourceSequence = {};
    playing(3);
    machine.pendingSource = 5;
    for (const int position : {-1, 0, 7}) {
        setState(REQUEST_ENCODER_TYPE);
        machine.sequencePos = position;
        machine.pendingSource = 5;
        turn({shortPress()});
        EXPECT_EQ(state(), "AUTO_PAUSE");
        EXPECT_EQ(machine.pendingSource, 3);
    }
}

TEST_F(RequestEncoderType, AnyOtherPressIsLeftForALaterState) {
    struct Row {
        Event press;
        int mode;
        bool shown;
    };
    for (const Row& row : {Row{longPress(), MODE_AUTO, true}, Row{shortPress(), MODE_AUTO, false},
                           Row{shortPress(), MODE_MANUAL, true}, Row{longPress(), MODE_MANUAL, false}}) {
        process.mode = row.mode;
        process.currentPID = row.shown ? currentPlayer : -1;
        fake::queue.clear();
        enter(REQUEST_ENCODER_TYPE);
        turn({row.press});
        EXPECT_EQ(state(),
                  row.shown ? "LAUNCH_PENDING_PLAYER" : "LAUNCH_CURRENT_PLAYER_POS_WITH_NON_EXISTING");
        EXPECT_EQ(calls.back(), "pushEvent(4,0," + std::to_string(row.press.value2) + ")");
        EXPECT_EQ(queuedIds(), (std::vector<int>{EID_BUTTON}));
    }
}

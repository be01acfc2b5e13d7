// SELECT_SOURCE_ID, SEND_ONLY_PTZ and FLUSH_CACHE_CONNECTED.
#include "launcher/machine_test.h"

namespace {

using SelectSourceId = MachineTest;

} // namespace

TEST_F(SelectSourceId, AnotherInputNeedsAPlayer) {
    playing(1);
    machine.pendingSource = 2;
    machine.sequenceStart = 77;
    enter(SELECT_SOURCE_ID);
    turn();
    EXPECT_EQ(state(), "REQUEST_ENCODER_TYPE");
    EXPECT_EQ(calls, (Calls{"peekNextEvent(10)"}));
    EXPECT_EQ(machine.sequenceStart, -1);
}

TEST_F(SelectSourceId, WithoutAPlayerThereIsNothingToCompare) {
    enter(SELECT_SOURCE_ID);
    turn();
    EXPECT_EQ(state(), "REQUEST_ENCODER_TYPE");
}

TEST_F(SelectSourceId, TheSameInputKeepsThePlayer) {
    fake::cachedSources[2].key = "key 1";
    enter(SELECT_SOURCE_ID);
    playing(1);
    machine.pendingSource = 2;
    turn();
    EXPECT_EQ(state(), "SEND_ONLY_PTZ");
    EXPECT_EQ(calls, (Calls{"peekNextEvent(10)", "getSourceEntry(2)"}));
    turn();
    EXPECT_EQ(state(), "AUTO_START_TIMER");
    EXPECT_EQ(calls, (Calls{"gotoPtzPreset(2)", "param(1) Decoder.Info.CurrentSource=2"}));
    EXPECT_EQ(process.currentPID, currentPlayer);
    EXPECT_EQ(machine.currentSource, 2);
}

TEST_F(SelectSourceId, KeysAreComparedByteForByte) {
    fake::cachedSources[2].key = "KEY 1";
    enter(SELECT_SOURCE_ID);
    playing(1);
    machine.pendingSource = 2;
    turn();
    EXPECT_EQ(state(), "REQUEST_ENCODER_TYPE");
}

TEST_F(SelectSourceId, TwoEmptyKeysAreEqual) {
    fake::cachedSources.clear(); // the configuration has lost the source that is shown, too
    for (const int source : {99, 1, -5}) {
        enter(SELECT_SOURCE_ID);
        playing(1);
        machine.pendingSource = source;
        turn();
        EXPECT_EQ(state(), "SEND_ONLY_PTZ") << source;
        EXPECT_EQ(calls, (Calls{"peekNextEvent(10)", "getSourceEntry(" + std::to_string(source) + ")"}));
        turn();
        EXPECT_EQ(machine.currentSource, source);
        EXPECT_EQ(process.currentPID, currentPlayer);
    }
}

TEST_F(SelectSourceId, AnIndexThatNamesNoSourceDiffersFromASourceThatIsThere) {
    enter(SELECT_SOURCE_ID);
    playing(1);
    machine.pendingSource = 99;
    turn();
    EXPECT_EQ(state(), "REQUEST_ENCODER_TYPE");
}

TEST_F(SelectSourceId, MinusOneNeverKeepsThePlayer) {
    fake::cachedSources.clear();
    enter(SELECT_SOURCE_ID);
    playing(1);
    machine.pendingSource = -1;
    turn();
    EXPECT_EQ(state(), "REQUEST_ENCODER_TYPE");
}

TEST_F(SelectSourceId, ACacheFlushComesFirst) {
    playing(1);
    enter(SELECT_SOURCE_ID);
    turn({fake::event(EID_FLUSHCACHE)});
    EXPECT_EQ(state(), "FLUSH_CACHE_CONNECTED");
    turn();
    EXPECT_EQ(state(), "REQUEST_ENCODER_TYPE");
    EXPECT_EQ(calls, (Calls{"flushSourceCache()"}));
    EXPECT_EQ(machine.pendingSource, 1);
}

TEST_F(SelectSourceId, InManualModeTheSequenceTimeIsLeftAlone) {
    process.mode = MODE_MANUAL;
    machine.sequenceStart = 77;
    enter(SELECT_SOURCE_ID);
    turn();
    EXPECT_EQ(machine.sequenceStart, 77);
}

TEST_F(SelectSourceId, APtzMoveInManualModeGoesBackToWaiting) {
    process.mode = MODE_MANUAL;
    playing(1);
    machine.pendingSource = 2;
    enter(SEND_ONLY_PTZ);
    turn();
    EXPECT_EQ(state(), "MANUAL_WAIT_FOR_NEW_SELECTION");
}

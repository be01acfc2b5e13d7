#include "replay/recording.h"

#include "replay/replay.h"

#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using replay::Part;
using replay::partsOf;
using Lines = std::vector<std::string>;

// A manual decoder that is locked: state 5, nothing plays.
const Lines lockedState{
    "1000 m machine 0 1 -1 -1 5 -1 -1 -1 0 0 65536 0 0 10000000 0 \\e \\e 0",
    "1001 m cache 0",
    "1002 m ready",
};

// The lock's timer comes, and the machine goes on to FLUSH_CACHE and DISCONNECTED.
const Lines endOfLock{
    "2000 m take 1 0 6 65536 0",
    "2001 m state 5 4",
    "2002 m state 4 3",
    "2003 m is 0 Decoder.ShowDisconnectedMessage yes 0",
    "2004 m shell 0",
};

Lines joined(const std::vector<Lines>& all) {
    Lines lines;
    for (const Lines& some : all)
        lines.insert(lines.end(), some.begin(), some.end());
    return lines;
}

std::string transitionsOf(const Part& part, std::string& difference) {
    std::string text;
    difference = replay::replayPart(part, [&](const replay::Transition& transition) {
                     text += std::to_string(transition.time) + ' ' + replay::textOf(transition) + '\n';
                 }).difference;
    return text;
}

TEST(RecordingParts, AreReplayedFromAStateOfTheMachine) {
    const auto parts =
        partsOf(joined({{"999 m take 1 0 12 0 0", "999 e event 12 0 0"}, lockedState, endOfLock}));
    ASSERT_EQ(parts.size(), 1U);
    EXPECT_EQ(parts[0].pid, -1);
    EXPECT_EQ(parts[0].leftOut, 1U);
    std::string difference;
    EXPECT_EQ(transitionsOf(parts[0], difference),
              "2001 LOCKED(5) -> FLUSH_CACHE(4)\n2002 FLUSH_CACHE(4) -> DISCONNECTED(3)\n");
    EXPECT_EQ(difference, "");
}

TEST(RecordingParts, OfEachSupervisorAreApart) {
    const auto parts = partsOf(joined({{"500 m run 1 77 1000500 0.1.0"},
                                       lockedState,
                                       endOfLock,
                                       {"3000 m run 1 78 1003000 0.1.0"},
                                       lockedState}));
    ASSERT_EQ(parts.size(), 2U);
    EXPECT_EQ(parts[0].pid, 77);
    EXPECT_EQ(parts[0].version, "0.1.0");
    EXPECT_EQ(parts[0].timeOfDay, 1000000);
    EXPECT_EQ(parts[1].pid, 78);
    std::string difference;
    EXPECT_NE(transitionsOf(parts[0], difference), "");
    EXPECT_EQ(transitionsOf(parts[1], difference), "");
    EXPECT_EQ(difference, "");
}

TEST(RecordingParts, AfterAGapBeginAtTheNextState) {
    const auto parts = partsOf(joined({{"500 m run 1 77 1000500 0.1.0"},
                                       lockedState,
                                       {"gap"},
                                       endOfLock,
                                       {"gap"},
                                       lockedState,
                                       endOfLock}));
    ASSERT_EQ(parts.size(), 3U);
    EXPECT_FALSE(parts[0].lines.empty());
    EXPECT_TRUE(parts[1].lines.empty()) << "there is no state of the machine in it";
    EXPECT_EQ(parts[1].leftOut, endOfLock.size());
    EXPECT_EQ(parts[2].pid, 77);
    std::string difference;
    EXPECT_NE(transitionsOf(parts[2], difference), "");
}

TEST(RecordingParts, SkipAStateThatIsNotWhole) {
    const Lines half{lockedState[0], lockedState[1]};
    const auto parts = partsOf(joined({half, {"1500 m take 1 0 12 0 0"}, lockedState, endOfLock}));
    ASSERT_EQ(parts.size(), 1U);
    EXPECT_EQ(parts[0].leftOut, 3U);
    EXPECT_TRUE(partsOf(half)[0].lines.empty());
}

TEST(RecordingParts, OfAnotherFormatAreRefused) {
    EXPECT_THROW(partsOf({"500 m run 2 77 1000500 0.1.0"}), std::runtime_error);
}

TEST(RecordingReplay, ComparesEachFurtherStateWithTheMachine) {
    Lines later = lockedState;
    later[0].replace(later[0].find(" 5 "), 3, " 3 "); // it is in FLUSH_CACHE, not in DISCONNECTED
    const auto parts = partsOf(joined({lockedState, {endOfLock[0], endOfLock[1]}, later}));
    std::string difference;
    EXPECT_EQ(transitionsOf(parts.at(0), difference), "2001 LOCKED(5) -> FLUSH_CACHE(4)\n");
    EXPECT_EQ(difference, "machine: recorded 3, now 4");
}

TEST(RecordingReplay, ShowsTheFirstOtherTransition) {
    Lines changed = endOfLock;
    changed[1] = "2001 m state 5 3";
    std::string difference;
    EXPECT_EQ(transitionsOf(partsOf(joined({lockedState, changed})).at(0), difference), "");
    EXPECT_EQ(difference, "state: recorded 3, now 4");
}

TEST(RecordingReplay, EndsInAStateThatDoesNotExist) {
    Lines changed = lockedState;
    changed[0].replace(changed[0].find(" 5 "), 3, " 99 ");
    std::string difference;
    transitionsOf(partsOf(joined({changed, endOfLock})).at(0), difference);
    EXPECT_EQ(difference, "the machine stands still in state 99");
}

TEST(RecordingFile, IsATextOrTheRecordersOwn) {
    const Lines lines = joined({lockedState, endOfLock});
    EXPECT_EQ(replay::linesOf(replay::asText(lines)), lines);
    for (const char* other : {"", "GIF89a", "skelmor recording 2\n", "skelmorJ"})
        EXPECT_THROW(replay::linesOf(other), std::runtime_error) << other;
}

} // namespace

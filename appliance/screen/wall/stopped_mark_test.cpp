#include "appliance/screen/wall/stopped_mark.h"

#include <gtest/gtest.h>

namespace screen {
namespace {

constexpr std::int64_t second = 1'000'000;

TEST(StoppedMark, NoneWhilePicturesCome) {
    EXPECT_EQ(stoppedMark({.supervisor = true, .visible = true, .ageUs = 40'000}), "");
    EXPECT_EQ(stoppedMark({.supervisor = true, .visible = true, .ageUs = stoppedAfterUs - 1}), "");
}

TEST(StoppedMark, NoneForAScreenThatIsBlackOnPurpose) {
    EXPECT_EQ(stoppedMark({.supervisor = true, .visible = false, .ageUs = 3600 * second}), "");
}

TEST(StoppedMark, TellsHowOldTheLastPictureIs) {
    EXPECT_EQ(stoppedMark({.supervisor = true, .visible = true, .ageUs = 12 * second}),
              "No new picture for 12 s");
    EXPECT_EQ(stoppedMark({.supervisor = false, .visible = true, .ageUs = 12 * second}),
              "No decoder runs here, last picture 12 s ago");
    EXPECT_EQ(stoppedMark({.supervisor = false, .visible = false, .ageUs = 12 * second}),
              "No decoder runs here");
}

TEST(StoppedMark, AgesAreInTheUnitThatMatters) {
    EXPECT_EQ(ageText(0), "0 s");
    EXPECT_EQ(ageText(60 * second - 1), "59 s");
    EXPECT_EQ(ageText(60 * second), "1 min");
    EXPECT_EQ(ageText(3600 * second - 1), "59 min");
    EXPECT_EQ(ageText(7500 * second), "2 h 5 min");
    EXPECT_EQ(ageText(47 * 3600 * second), "47 h 0 min");
    EXPECT_EQ(ageText(4 * 86400 * second), "4 days");
}

} // namespace
} // namespace screen

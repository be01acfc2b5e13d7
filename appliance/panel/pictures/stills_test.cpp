#include "appliance/panel/pictures/stills.h"

#include <gtest/gtest.h>

namespace panel {
namespace {

constexpr std::int64_t second = 1'000'000;

JpegPtr bytes(std::size_t count) {
    return std::make_shared<const std::string>(count, 'x');
}

TEST(Stills, KeepTheLastOfEachSource) {
    Stills stills;
    EXPECT_FALSE(stills.find("Gate"));
    EXPECT_TRUE(stills.keep("Gate", bytes(1), second));
    EXPECT_TRUE(stills.keep("Yard", bytes(2), 2 * second));
    stills.keep("Yard", bytes(3), 3 * second);
    EXPECT_EQ(stills.find("Yard")->jpeg->size(), 3U);
    EXPECT_EQ(stills.find("Yard")->time, 3 * second);
    EXPECT_EQ(stills.find("Gate")->jpeg->size(), 1U);
}

TEST(Stills, TellOfTheSourceThatShowsNowAndThenOnly) {
    Stills stills;
    EXPECT_TRUE(stills.keep("Gate", bytes(1), second));
    const std::int64_t version = stills.find("Gate")->version;
    EXPECT_FALSE(stills.keep("Gate", bytes(1), 2 * second));
    EXPECT_EQ(stills.find("Gate")->version, version);
    EXPECT_TRUE(stills.keep("Gate", bytes(1), second + Stills::tellAfterUs));
    EXPECT_GT(stills.find("Gate")->version, version);
}

TEST(Stills, AreBounded) {
    Stills stills;
    for (std::size_t i = 0; i < Stills::mostStills + 10; ++i)
        stills.keep("S" + std::to_string(i), bytes(1), second);
    EXPECT_FALSE(stills.find("S9"));
    EXPECT_TRUE(stills.find("S10"));
    stills.keep("Large", bytes(Stills::mostBytes), second);
    EXPECT_TRUE(stills.find("Large"));
    EXPECT_FALSE(stills.find("S10"));
    EXPECT_FALSE(stills.keep("Too large", bytes(Stills::mostBytes + 1), second));
    EXPECT_FALSE(stills.keep("None", nullptr, second));
}

} // namespace
} // namespace panel

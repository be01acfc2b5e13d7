#include "appliance/panel/pictures/picture_rate.h"

#include <gtest/gtest.h>

namespace panel {
namespace {

TEST(PictureRate, IsTheWantedOneOnAFastMachine) {
    PictureRate rate(10);
    EXPECT_EQ(rate.intervalUs(), 100'000);
    for (int i = 0; i < 20; ++i)
        rate.took(5'000);
    EXPECT_EQ(rate.intervalUs(), 100'000);
}

TEST(PictureRate, UsesAFourthOfTheTimeAtMost) {
    PictureRate rate(10);
    for (int i = 0; i < 50; ++i)
        rate.took(50'000);
    EXPECT_NEAR(static_cast<double>(rate.intervalUs()), 200'000, 1000);
}

TEST(PictureRate, RecoversAfterABusyMoment) {
    PictureRate rate(10);
    rate.took(400'000);
    EXPECT_GT(rate.intervalUs(), 1'000'000);
    for (int i = 0; i < 50; ++i)
        rate.took(1'000);
    EXPECT_EQ(rate.intervalUs(), 100'000);
}

TEST(PictureRate, NeverStops) {
    PictureRate rate(10);
    rate.took(60'000'000);
    EXPECT_EQ(rate.intervalUs(), PictureRate::slowestUs);
    rate.setMost(0);
    EXPECT_EQ(rate.intervalUs(), 2'000'000);
    rate.took(-5);
    EXPECT_GT(rate.intervalUs(), 0);
}

} // namespace
} // namespace panel

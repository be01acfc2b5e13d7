#include "appliance/mqtt/back_off.h"

#include <gtest/gtest.h>

namespace {

TEST(BackOff, GrowsToHalfAMinuteAndBeginsAnew) {
    mqtt::BackOff backOff;
    for (const int seconds : {1, 2, 4, 8, 16, 30, 30}) {
        EXPECT_EQ(backOff.next(0), seconds * 1'000'000);
    }
    backOff.reset();
    EXPECT_EQ(backOff.next(0), 1'000'000);
}

TEST(BackOff, IsUpToAQuarterLonger) {
    for (std::uint32_t chance = 0; chance < 5000; chance += 7) {
        mqtt::BackOff backOff;
        const std::int64_t pause = backOff.next(chance);
        EXPECT_GE(pause, 1'000'000);
        EXPECT_LT(pause, 1'250'000);
    }
}

} // namespace

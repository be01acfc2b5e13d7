#include <libcommon/clock.h>

#include <ctime>
#include <gtest/gtest.h>

namespace {

TEST(Clock, CountsMicrosecondsOfTheMonotonicClock) {
    timespec before{};
    timespec after{};
    clock_gettime(CLOCK_MONOTONIC, &before);
    const std::int64_t now = gettimeusec();
    clock_gettime(CLOCK_MONOTONIC, &after);
    EXPECT_GE(now, before.tv_sec * 1'000'000 + before.tv_nsec / 1000);
    EXPECT_LE(now, after.tv_sec * 1'000'000 + after.tv_nsec / 1000);
}

TEST(Clock, NeverGoesBack) {
    std::int64_t last = gettimeusec();
    for (int i = 0; i < 100000; ++i) {
        const std::int64_t now = gettimeusec();
        ASSERT_GE(now, last);
        last = now;
    }
}

} // namespace

#include "appliance/gateway/service/screen_room.h"

#include <gtest/gtest.h>

namespace gateway {
namespace {

TEST(ScreenRoom, SmallIsUpToAQuarterOf1920x1080) {
    for (const char* small : {"320x240", "720x576", "960x540", "960x576"})
        EXPECT_TRUE(isSmallScreen({.tile = "", .size = small, .monitor = ""})) << small;
    for (const char* large : {"962x540", "1024x576", "960x600", "1280x720", "3840x2160"})
        EXPECT_FALSE(isSmallScreen({.tile = "", .size = large, .monitor = ""})) << large;
}

TEST(ScreenRoom, ATileComesBeforeTheConfiguredSizeAndThatBeforeTheMonitor) {
    EXPECT_TRUE(isSmallScreen({.tile = "480x270", .size = "1920x1080", .monitor = "1920x1080"}));
    EXPECT_FALSE(isSmallScreen({.tile = "", .size = "1920x1080", .monitor = "640x480"}));
    EXPECT_FALSE(isSmallScreen({.tile = "", .size = "auto", .monitor = "1920x1080"}));
    EXPECT_TRUE(isSmallScreen({.tile = "", .size = "auto", .monitor = ""}));
    EXPECT_TRUE(isSmallScreen({.tile = "x", .size = "1920x", .monitor = "-1x-1"}));
}

} // namespace
} // namespace gateway

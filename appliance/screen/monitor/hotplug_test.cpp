#include "appliance/screen/monitor/hotplug.h"

#include <gtest/gtest.h>

namespace {

// The rest needs a display: tests/boot.
TEST(Hotplug, NothingHappensOnAQuietMachine) {
    screen::Hotplug hotplug;
    EXPECT_FALSE(hotplug.happened());
    screen::probeDisplays(-1);
}

} // namespace

#include "process/paths.h"

#include <cstdlib>
#include <gtest/gtest.h>

TEST(Paths, AnAbsolutePathMovesBelowTheApplianceRoot) {
    setenv("APPLIANCE_ROOT", "/srv/one appliance", 1);
    EXPECT_EQ(underApplianceRoot("/var/tmp/barrier"), "/srv/one appliance/var/tmp/barrier");
}

TEST(Paths, ANameWithoutSlashIsLeftToTheSearchPath) {
    setenv("APPLIANCE_ROOT", "/srv/one", 1);
    EXPECT_EQ(underApplianceRoot("unicastplayer"), "unicastplayer");
    EXPECT_EQ(underApplianceRoot(""), "");
}

TEST(Paths, WithoutARootPathsAreUnchanged) {
    unsetenv("APPLIANCE_ROOT");
    EXPECT_EQ(underApplianceRoot("/bin/mjpeg_player"), "/bin/mjpeg_player");
    setenv("APPLIANCE_ROOT", "", 1);
    EXPECT_EQ(underApplianceRoot("/bin/mjpeg_player"), "/bin/mjpeg_player");
}

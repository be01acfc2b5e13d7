#include "appliance/operating/muting.h"

#include "appliance/operating/operating_fixture.h"
#include "appliance/operating/refused.h"

namespace {

using Muting = OperatingTest;

TEST_F(Muting, IsOffAtFirst) {
    EXPECT_FALSE(isMuted());
}

TEST_F(Muting, GoesOnAndOff) {
    EXPECT_EQ(setMuted(true), "sound off");
    EXPECT_TRUE(isMuted());
    EXPECT_EQ(setMuted(false), "sound on");
    EXPECT_FALSE(isMuted());
}

TEST_F(Muting, IsRefusedWhereItCannotBeWritten) {
    std::filesystem::remove_all(root / "run");
    std::ofstream(root / "run") << "in the way";
    EXPECT_THROW(setMuted(true), Refused);
}

} // namespace

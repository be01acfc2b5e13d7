#include "appliance/operating/muting.h"

#include "appliance/operating/operating_fixture.h"
#include "appliance/operating/refused.h"

namespace {

using Muting = OperatingTest;

TEST_F(Muting, IsRefusedWithoutADecoder) {
    EXPECT_FALSE(isMuted());
    EXPECT_THROW(muteSound(true), Refused);
    EXPECT_FALSE(isMuted());
}

} // namespace

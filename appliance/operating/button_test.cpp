#include "appliance/operating/button.h"

#include "appliance/operating/operating_fixture.h"
#include "appliance/operating/refused.h"

#include <gmock/gmock.h>

namespace {

using Button = OperatingTest;

TEST_F(Button, IsRefusedWithoutADecoder) {
    try {
        pressButton(false);
        FAIL() << "nobody reads the button";
    } catch (const Refused& refused) {
        EXPECT_THAT(refused.what(), testing::HasSubstr("no decoder is running under " + root.string()));
    }
}

} // namespace

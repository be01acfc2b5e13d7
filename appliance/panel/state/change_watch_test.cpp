#include "appliance/panel/state/change_watch.h"

#include "appliance/operating/operating_fixture.h"

#include <libcommon/display.h>
#include <libcommon/params.h>
#include <libcommon/status.h>

namespace panel {
namespace {

using ChangeWatchTest = OperatingTest;

TEST_F(ChangeWatchTest, SaysNothingAtRest) {
    ChangeWatch watch;
    EXPECT_FALSE(watch.read().any());
}

TEST_F(ChangeWatchTest, NoticesTextsAndPublishedValues) {
    ChangeWatch watch;
    ParamWrapper(1, true)["Decoder.Info.CurrentSource"] = 3;
    EXPECT_TRUE(watch.read().decoder);
    osdPrintf(0, 0, "Hello"); // makes the folder
    watch.renew();
    watch.read();
    osdClear(0);
    EXPECT_TRUE(watch.read().decoder);
    EXPECT_FALSE(watch.read().any());
}

TEST_F(ChangeWatchTest, NoticesTheConfiguration) {
    ChangeWatch watch;
    configure("[Decoder]\nSequenceMode = auto\n");
    EXPECT_TRUE(watch.read().configuration);
    ParamWrapper(0, true)["Decoder.SequenceMode"] = "manual";
    EXPECT_TRUE(watch.read().configuration);
}

TEST_F(ChangeWatchTest, NoticesValuesOfSourcesThatAppearLater) {
    ChangeWatch watch;
    status(0, "Model", "M1"); // makes the folders
    watch.renew();
    watch.read();
    status(0, "Model", "M2");
    EXPECT_TRUE(watch.read().sources);
    status(7, "Model", "M3");
    EXPECT_TRUE(watch.read().sources) << "a new folder";
    status(7, "Model", "M4");
    EXPECT_TRUE(watch.read().sources);
}

} // namespace
} // namespace panel

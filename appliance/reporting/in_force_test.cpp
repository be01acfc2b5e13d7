#include "appliance/reporting/in_force.h"

#include <gtest/gtest.h>

namespace {

const SourceParams yard{{"Name", "Yard"}, {"Address", "10.0.0.7"}, {"DisplayTime", "5"}, {"PTZ", "gate"}};

InForce connected() {
    InForce inForce;
    inForce.known = true;
    inForce.unchanged = false;
    inForce.sources = {yard};
    return inForce;
}

TEST(InForce, SameSourceIsInForce) {
    EXPECT_TRUE(connected().difference(0, yard).inForce());
    EXPECT_EQ(differenceText(connected().difference(0, yard)), "");
}

TEST(InForce, SourceBeyondTheListOfTheConnectIsNew) {
    EXPECT_TRUE(connected().difference(1, yard).isNew);
    EXPECT_EQ(differenceText(connected().difference(1, yard)), "new");
}

TEST(InForce, KeysThatAConnectReadsAreNamed) {
    SourceParams changed = yard;
    changed["DisplayTime"] = "6";
    changed["autoenabled"] = "yes";
    EXPECT_EQ(differenceText(connected().difference(0, changed)), "changed: AutoEnabled, DisplayTime");
}

TEST(InForce, KeysThatAreReadAtEachUseDoNotCount) {
    SourceParams changed = yard;
    changed["PTZ"] = "door";
    changed["Password"] = "new";
    EXPECT_TRUE(connected().difference(0, changed).inForce());
}

TEST(InForce, NothingDiffersWhenNothingIsKnown) {
    EXPECT_TRUE(InForce().difference(7, yard).inForce());
}

} // namespace

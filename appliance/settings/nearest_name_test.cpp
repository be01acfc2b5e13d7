#include "appliance/settings/nearest_name.h"

#include <gtest/gtest.h>
#include <vector>

namespace {

const std::vector<std::string> names{"Address", "AutoEnabled", "ManualEnabled", "DisplayTime"};

TEST(NearestName, OneOrTwoMistypedLettersFindTheName) {
    EXPECT_EQ(nearestName("Adress", names), "Address");
    EXPECT_EQ(nearestName("adderss", names), "Address");
    EXPECT_EQ(nearestName("AutoEnable", names), "AutoEnabled");
    EXPECT_EQ(nearestName("DipslayTime", names), "DisplayTime");
}

TEST(NearestName, UnrelatedNameFindsNothing) {
    EXPECT_EQ(nearestName("Colour", names), "");
    EXPECT_EQ(nearestName("", names), "");
    EXPECT_EQ(nearestName("Address", {}), "");
    EXPECT_EQ(nearestName(std::string(100000, 'a'), names), "");
}

} // namespace

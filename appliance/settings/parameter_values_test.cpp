#include "appliance/settings/parameter_values.h"

#include <gtest/gtest.h>

namespace {

TEST(ParameterValues, AreReplacedInTheirLine) {
    EXPECT_EQ(withValues("# a\n[Decoder]\nsequencemode=auto\n# b\n", {{"Decoder.SequenceMode", "manual"}}),
              "# a\n[Decoder]\nsequencemode = manual\n# b\n");
}

TEST(ParameterValues, TheLastLineCounts) {
    EXPECT_EQ(withValues("[A]\nx = 1\nx = 2\n[B]\nx = 3\n[a]\nX = 4\n", {{"A.x", "5"}}),
              "[A]\nx = 1\nx = 2\n[B]\nx = 3\n[a]\nX = 5\n");
}

TEST(ParameterValues, NewOnesGoToTheEndOfTheSection) {
    EXPECT_EQ(withValues("[A]\nx = 1\n\n# of B\n[B]\ny = 1\n", {{"A.z", "2"}}),
              "[A]\nx = 1\nz = 2\n\n# of B\n[B]\ny = 1\n");
    EXPECT_EQ(withValues("[A]\n[B]\ny = 1", {{"A.z", "2"}, {"B.z", "3"}}), "[A]\nz = 2\n[B]\ny = 1\nz = 3\n");
}

TEST(ParameterValues, NewSectionsGoToTheEndOfTheText) {
    EXPECT_EQ(withValues("[A]\nx = 1", {{"B.C.y", "2"}}), "[A]\nx = 1\n\n[B.C]\ny = 2\n");
    EXPECT_EQ(withValues("", {{"B.y", "2"}}), "[B]\ny = 2\n");
}

TEST(ParameterValues, AreCleared) {
    EXPECT_EQ(withValues("[A]\nx = 1\ny = 2\nX = 3\n", {{"A.x", std::nullopt}}), "[A]\ny = 2\n");
    EXPECT_EQ(withValues("[A]\ny = 2\n", {{"A.x", std::nullopt}, {"C.x", std::nullopt}}), "[A]\ny = 2\n");
}

TEST(ParameterValues, ASectionMayHaveDots) {
    EXPECT_EQ(withValues("[Encoder.10.0.0.7]\nAddress = a\n", {{"Encoder.10.0.0.7.Address", "b"}}),
              "[Encoder.10.0.0.7]\nAddress = b\n");
}

TEST(ParameterValues, SomeValuesAreRefused) {
    EXPECT_EQ(whyNotValue("a b"), "");
    EXPECT_EQ(whyNotValue(""), "");
    EXPECT_NE(whyNotValue("a\nPassword = b"), "");
    EXPECT_NE(whyNotValue(" a"), "");
    EXPECT_NE(whyNotValue("\xff"), "");
    EXPECT_NE(whyNotValue(std::string(60'000, 'x')), "");
}

} // namespace

#include "appliance/serving/text.h"

#include <gtest/gtest.h>

TEST(Text, WholeNumbersHaveOnlyDigits) {
    EXPECT_EQ(wholeNumber("0"), 0);
    EXPECT_EQ(wholeNumber("640"), 640);
    for (const char* text : {"", "-1", "+1", "1x", " 1", "1234567890"})
        EXPECT_FALSE(wholeNumber(text).has_value()) << text;
}

TEST(Text, JsonTextIsAlwaysAscii) {
    EXPECT_EQ(jsonText("a\"b\\c\n\xff"), "\"a\\\"b\\\\c\\u000a\\u00ff\"");
}

TEST(Text, PercentSignsAreDecodedOnlyBeforeTwoDigits) {
    EXPECT_EQ(percentDecoded("a%20b%2fc"), "a b/c");
    EXPECT_EQ(percentDecoded("%zz%4"), "%zz%4");
}

#include "sources/istring.h"

#include <gtest/gtest.h>
#include <map>
#include <string>

TEST(IString, LetterCaseDoesNotDistinguishNames) {
    EXPECT_EQ(istring("address"), istring("Address"));
    EXPECT_EQ(istring("ADDRESS"), istring("Address"));
    EXPECT_NE(istring("address"), istring("addresses"));
    EXPECT_EQ(istring(), istring(""));
}

TEST(IString, WhereTheCommonPartIsEqualTheShorterOrdersFirst) {
    EXPECT_LT(istring("Addr"), istring("address"));
    EXPECT_LT(istring("ADDR"), istring("address"));
    EXPECT_GT(istring("address"), istring("ADDR"));
    EXPECT_EQ(istring("Addr").compare("address"), -3);
}

TEST(IString, OrderIgnoresCaseToo) {
    EXPECT_LT(istring("ALPHA"), istring("beta"));
    EXPECT_LT(istring("alpha"), istring("BETA"));
    EXPECT_LT(istring("_"), istring("A")); // folded to lower case, not to upper case
}

TEST(IString, AMapFindsAParameterInAnyLetterCase) {
    std::map<istring, std::string> params{{"Address", "10.0.0.1"}};
    EXPECT_EQ(params["ADDRESS"], "10.0.0.1");
    EXPECT_EQ(params["address"], "10.0.0.1");
    EXPECT_EQ(params.size(), 1U);
}

#include <libcommon/istring.h>

#include <gtest/gtest.h>
#include <map>

namespace {

TEST(IString, NamesThatDifferInCaseAloneAreEqual) {
    EXPECT_EQ(istring("Address"), istring("ADDRESS"));
    EXPECT_EQ(istring("Address").compare("address"), 0);
    EXPECT_NE(istring("Address"), istring("Addres"));
    EXPECT_TRUE(istring() == istring(""));
}

TEST(IString, TheShorterOfTwoEqualBeginningsComesFirst) {
    EXPECT_LT(istring("Addr"), istring("address"));
    EXPECT_GT(istring("ADDRESS"), istring("addr"));
    EXPECT_LT(istring(""), istring("a"));
    EXPECT_LT(istring("a"), istring("B"));
    EXPECT_LT(istring("A"), istring("b"));
}

TEST(IString, AMapFindsANameInAnyCase) {
    std::map<istring, std::string> names{{"Address", "10.0.0.1"}};
    EXPECT_EQ(names["aDDRESS"], "10.0.0.1");
    names["ADDRESS"] = "10.0.0.2";
    EXPECT_EQ(names.size(), 1U);
    EXPECT_EQ(names["Port"], "");
    EXPECT_EQ(names.size(), 2U);
}

TEST(IString, SearchesIgnoreCase) {
    const istring text = "Content-Length";
    EXPECT_EQ(text.find('L'), 8U);
    EXPECT_EQ(text.find('l'), 8U);
    EXPECT_EQ(text.find("LENGTH"), 8U);
    EXPECT_EQ(text.find('x'), istring::npos);
    EXPECT_EQ(text.rfind('C'), 0U);
}

TEST(IString, OnlyAsciiLettersHaveTwoCases) {
    EXPECT_NE(istring("\xc3\xa4"), istring("\xc3\x84"));
    EXPECT_NE(istring("@"), istring("`"));
    EXPECT_NE(istring("["), istring("{"));
}

} // namespace

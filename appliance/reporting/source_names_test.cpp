#include "appliance/reporting/source_names.h"

#include "appliance/operating/refused.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::AllOf;
using testing::HasSubstr;

const std::vector<std::string> house{"Front door", "Front yard", "Garage", "7", "garage"};

std::string refusalOf(const char* wanted, const std::vector<std::string>& names) {
    try {
        const int index = resolveSource(wanted, names);
        return "accepted as " + std::to_string(index);
    } catch (const Refused& refused) {
        return refused.what();
    }
}

TEST(SourceNames, NumberIsAnIndex) {
    EXPECT_EQ(resolveSource("0", house), 0);
    EXPECT_EQ(resolveSource("4", house), 4);
}

TEST(SourceNames, NumberThatIsNotAnIndexMayBeAName) {
    EXPECT_EQ(resolveSource("7", house), 3);
}

TEST(SourceNames, NameInAnyLetterCase) {
    EXPECT_EQ(resolveSource("Front door", house), 0);
    EXPECT_EQ(resolveSource("FRONT YARD", house), 1);
}

TEST(SourceNames, BeginningOfOneName) {
    EXPECT_EQ(resolveSource("front d", house), 0);
}

TEST(SourceNames, WholeNameWinsOverLongerOnes) {
    EXPECT_EQ(resolveSource("Front", {"Front door", "Front"}), 1);
}

TEST(SourceNames, AmbiguousBeginningListsTheMatches) {
    EXPECT_THAT(refusalOf("front", house), AllOf(HasSubstr("fits more than one source"),
                                                 HasSubstr("0 \"Front door\", 1 \"Front yard\"")));
}

TEST(SourceNames, TwoSourcesWithOneNameAreAmbiguous) {
    EXPECT_THAT(refusalOf("Garage", house), HasSubstr("2 \"Garage\", 4 \"garage\""));
}

TEST(SourceNames, UnknownNameListsTheSources) {
    EXPECT_THAT(refusalOf("cellar", {"Front door", "Garage"}),
                HasSubstr("there is no source \"cellar\"; there are 0 \"Front door\", 1 \"Garage\""));
    EXPECT_THAT(refusalOf("5", {"Front door"}), HasSubstr("there is no source \"5\"; there is 0"));
    EXPECT_THAT(refusalOf("-1", house), HasSubstr("there is no source"));
    EXPECT_THAT(refusalOf("1x", house), HasSubstr("there is no source"));
    EXPECT_THAT(refusalOf("", house), HasSubstr("there is no source"));
    EXPECT_THAT(refusalOf("99999999999999999999", house), HasSubstr("there is no source"));
}

TEST(SourceNames, NoSourcesAtAll) {
    EXPECT_THAT(refusalOf("0", {}), HasSubstr("no sources are configured"));
}

TEST(SourceNames, LongListsAreCut) {
    const std::vector<std::string> many(100, "camera");
    EXPECT_THAT(refusalOf("x", many),
                AllOf(HasSubstr("19 \"camera\", ..."), testing::Not(HasSubstr("20 \""))));
}

} // namespace

#include "appliance/mqtt/rules/condition.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using nlohmann::json;

const json event = json::parse(R"({"type": "new", "contact": false, "none": null, "count": 3,
    "after": {"label": "person", "score": 0.71, "zones": ["yard", "front gate"], "text": "2.5", "a b": "x=y"}})");

bool holds(const std::string& text, const std::string& path = "", const json& payload = event) {
    mqtt::JsonPath value;
    EXPECT_EQ(mqtt::JsonPath::read(path, value), "");
    mqtt::Condition condition;
    EXPECT_EQ(mqtt::Condition::read(text, value, condition), "") << text;
    return condition.holds(payload);
}

std::string mistake(const std::string& text) {
    mqtt::Condition condition;
    return mqtt::Condition::read(text, {}, condition);
}

TEST(Condition, ComparesTexts) {
    EXPECT_TRUE(holds("= person", "after.label"));
    EXPECT_FALSE(holds("= Person", "after.label"));
    EXPECT_FALSE(holds("!= person", "after.label"));
    EXPECT_TRUE(holds("!= car", "after.label"));
    EXPECT_TRUE(holds("after.zones[1] = \"front gate\""));
}

TEST(Condition, ComparesNumbersAndOtherValues) {
    EXPECT_TRUE(holds("count = 3.0"));
    EXPECT_TRUE(holds("count > 2.9"));
    EXPECT_FALSE(holds("count > 3"));
    EXPECT_TRUE(holds("after.score < 0.72"));
    EXPECT_TRUE(holds("after.text > 2"));
    EXPECT_FALSE(holds("after.label > 2"));
    EXPECT_TRUE(holds("contact = false"));
    EXPECT_TRUE(holds("none = null"));
}

TEST(Condition, LooksIntoTextsAndLists) {
    EXPECT_TRUE(holds("after.label contains erso"));
    EXPECT_TRUE(holds("after.zones contains yard"));
    EXPECT_FALSE(holds("after.zones contains yar"));
    EXPECT_TRUE(holds("after.zones[*] contains yar"));
    EXPECT_FALSE(holds("count contains 3"));
}

TEST(Condition, MissingValueFulfilsNothing) {
    for (const char* text : {"x = 1", "x != 1", "x < 1", "x > 1", "x contains a", "x exists"}) {
        EXPECT_FALSE(holds(text)) << text;
    }
    EXPECT_TRUE(holds("none exists"));
    EXPECT_TRUE(holds("", "type"));
    EXPECT_FALSE(holds("", "x"));
}

TEST(Condition, JoinsComparisonsWithAnd) {
    EXPECT_TRUE(holds("type=new and after.label = person and after.score>0.7"));
    EXPECT_FALSE(holds("type=new and after.label = person and after.score>0.8"));
    EXPECT_TRUE(holds("= person and after.zones contains yard", "after.label"));
}

TEST(Condition, QuotationMarksKeepBlanksAndOperators) {
    EXPECT_TRUE(holds(R"(after["a b"] = "x=y")"));
    EXPECT_TRUE(holds("= \"a and b\"", "", "a and b"));
    EXPECT_TRUE(holds(R"(= "say \"hi\" \\")", "", R"(say "hi" \)"));
    EXPECT_TRUE(holds("= \"and\"", "", "and"));
}

TEST(Condition, EmptyPathIsAboutThePayload) {
    EXPECT_TRUE(holds("= ON", "", "ON"));
    EXPECT_TRUE(holds("> 20", "", 21.5));
}

TEST(Condition, MistakesAreNamed) {
    EXPECT_THAT(mistake("after.label"), testing::HasSubstr("no operator"));
    EXPECT_THAT(mistake("after.label person"), testing::HasSubstr("no operator"));
    EXPECT_THAT(mistake("a == b"), testing::HasSubstr("no operator"));
    EXPECT_THAT(mistake("a ="), testing::HasSubstr("no value after \"=\""));
    EXPECT_THAT(mistake("a = b c"), testing::HasSubstr("quotation marks"));
    EXPECT_THAT(mistake("a < many"), testing::HasSubstr("no number after \"<\""));
    EXPECT_THAT(mistake("a < nan"), testing::HasSubstr("no number"));
    EXPECT_THAT(mistake("a exists b"), testing::HasSubstr("has a value after \"exists\""));
    EXPECT_THAT(mistake("a = b and"), testing::HasSubstr("no comparison"));
    EXPECT_THAT(mistake("a. = b"), testing::HasSubstr("path \"a.\""));
    EXPECT_THAT(mistake("\"a\" = b"), testing::HasSubstr("quoted text"));
    EXPECT_THAT(mistake("a = \"b"), testing::HasSubstr("without its end"));
}

} // namespace

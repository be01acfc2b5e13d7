#include "appliance/mqtt/rules/rule.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using nlohmann::json;

const SourceParams person{{"Name", "Person"},           {"Topic", "frigate/events"},
                          {"Path", "after.label"},      {"Condition", "= person and type = new"},
                          {"Source", "{after.camera}"}, {"Text", "Person: {after.camera}"},
                          {"MinimumTime", "60"}};

mqtt::Rule read(const SourceParams& keys) {
    mqtt::Rule rule;
    for (const mqtt::RuleMistake& mistake : mqtt::readRule("Person", keys, rule)) {
        ADD_FAILURE() << mistake.key << ' ' << mistake.reason;
    }
    return rule;
}

SourceParams with(const istring& key, const std::string& value) {
    SourceParams keys = person;
    keys[key] = value;
    return keys;
}

const json event = json::parse(R"({"type": "new", "after": {"label": "person", "camera": "yard"}})");

TEST(Rule, JudgesAMessage) {
    const std::optional<mqtt::Detection> detection = read(person).judge("frigate/events", event);
    ASSERT_TRUE(detection);
    EXPECT_EQ(detection->source, "yard");
    EXPECT_EQ(detection->text, "Person: yard");
    EXPECT_EQ(read(person).minimumTime, 60);
}

TEST(Rule, OtherMessagesMeanNothing) {
    EXPECT_FALSE(read(person).judge("frigate/other", event));
    json car = event;
    car["after"]["label"] = "car";
    EXPECT_FALSE(read(person).judge("frigate/events", car));
    json nowhere = event;
    nowhere["after"].erase("camera");
    EXPECT_FALSE(read(person).judge("frigate/events", nowhere)) << "its source has no value";
    EXPECT_FALSE(read(person).judge("frigate/events", "person"));
}

TEST(Rule, EachMistakeNamesItsKey) {
    mqtt::Rule rule;
    const std::vector<std::pair<istring, std::string>> wrong{
        {"Topic", "a#"},   {"Path", "a."},          {"Condition", "= "},  {"Source", "{a"},
        {"Text", "{a b}"}, {"MinimumTime", "soon"}, {"MinimumTime", "-1"}};
    for (const auto& [key, value] : wrong) {
        const std::vector<mqtt::RuleMistake> mistakes = mqtt::readRule("Person", with(key, value), rule);
        ASSERT_EQ(mistakes.size(), 1U) << value;
        EXPECT_EQ(istring(mistakes[0].key.c_str()), key);
        EXPECT_NE(mistakes[0].reason, "");
    }
    EXPECT_EQ(mqtt::readRule("Person", {}, rule).size(), 2U) << "topic and source are missing";
}

TEST(Rule, PayloadThatIsNoJsonIsAText) {
    EXPECT_EQ(mqtt::payloadValue("ON"), json("ON"));
    EXPECT_EQ(mqtt::payloadValue("42"), json(42));
    EXPECT_EQ(mqtt::payloadValue(""), json(""));
    EXPECT_EQ(mqtt::payloadValue("\xff"), json("?"));
    EXPECT_EQ(mqtt::payloadValue("{\"a\": 1}"), json({{"a", 1}}));
    EXPECT_TRUE(mqtt::payloadValue(std::string(100000, '[')).is_string()) << "too deep";
    EXPECT_TRUE(mqtt::payloadValue(std::string(1000, '[') + std::string(1000, ']')).is_string());
}

} // namespace

#include "appliance/mqtt/rules/json_path.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using nlohmann::json;

// The values as one list.
json at(const std::string& path, const json& whole) {
    mqtt::JsonPath read;
    EXPECT_EQ(mqtt::JsonPath::read(path, read), "") << path;
    json found = json::array();
    for (const json* value : read.find(whole)) {
        found.push_back(*value);
    }
    return found;
}

std::string mistake(const std::string& path) {
    mqtt::JsonPath read;
    return mqtt::JsonPath::read(path, read);
}

const json whole = json::parse(
    R"({"type": "new", "after": {"label": "person", "zones": ["yard", "gate"], "a.b": {"c": 1}},
        "boxes": [{"name": "x"}, {"name": "y"}, {"other": 0}]})");

TEST(JsonPath, NamesKeysAndElements) {
    EXPECT_EQ(at("type", whole), json({"new"}));
    EXPECT_EQ(at("after.label", whole), json({"person"}));
    EXPECT_EQ(at("$.after.label", whole), json({"person"}));
    EXPECT_EQ(at("after.zones[1]", whole), json({"gate"}));
    EXPECT_EQ(at("after.zones[*]", whole), json({"yard", "gate"}));
    EXPECT_EQ(at("boxes[*].name", whole), json({"x", "y"}));
    EXPECT_EQ(at("after[\"a.b\"].c", whole), json({1}));
}

TEST(JsonPath, EmptyPathIsTheWholeValue) {
    EXPECT_EQ(at("", "ON"), json({"ON"}));
    EXPECT_EQ(at("$", "ON"), json({"ON"}));
}

TEST(JsonPath, FindsNothingWhereNothingIs) {
    for (const char* path :
         {"none", "after.none", "type.label", "type[0]", "after.zones[2]", "after[*]", "after[0]"}) {
        EXPECT_EQ(at(path, whole), json::array()) << path;
    }
    EXPECT_EQ(at("type", "ON"), json::array());
}

TEST(JsonPath, ManyElementsAreBounded) {
    EXPECT_EQ(at("[*]", json(std::vector<int>(5000, 1))).size(), 1000U);
}

TEST(JsonPath, MistakesAreNamed) {
    EXPECT_THAT(mistake("after."), testing::HasSubstr("no key"));
    EXPECT_THAT(mistake(".after"), testing::HasSubstr("no key"));
    EXPECT_THAT(mistake("zones[x]"), testing::HasSubstr("no number"));
    EXPECT_THAT(mistake("zones[0"), testing::HasSubstr("without its"));
    EXPECT_THAT(mistake("zones[\"a]"), testing::HasSubstr("without its end"));
    EXPECT_THAT(mistake("zones[0]x"), testing::HasSubstr("needs a dot"));
    EXPECT_THAT(mistake("front door"), testing::HasSubstr("in a key"));
    EXPECT_THAT(mistake("a[99999999999999999999999]"), testing::HasSubstr("no number"));
    EXPECT_THAT(mistake("a.a.a.a.a.a.a.a.a.a.a.a.a.a.a.a.a"), testing::HasSubstr("16 steps"));
}

} // namespace

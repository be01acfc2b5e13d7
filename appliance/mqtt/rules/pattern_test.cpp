#include "appliance/mqtt/rules/pattern.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using nlohmann::json;

const json event = json::parse(R"({"camera": "yard", "score": 0.5, "line": "a\nb", "none": null, "k}": 1})");

std::optional<std::string> filled(const std::string& text, const std::optional<std::string>& instead = "?") {
    mqtt::Pattern pattern;
    EXPECT_EQ(mqtt::Pattern::read(text, pattern), "") << text;
    return pattern.fill("frigate/yard/person", event, instead);
}

std::string mistake(const std::string& text) {
    mqtt::Pattern pattern;
    return mqtt::Pattern::read(text, pattern);
}

TEST(Pattern, FillsInValues) {
    EXPECT_EQ(filled("Person in the {camera}"), "Person in the yard");
    EXPECT_EQ(filled("{camera}{score}"), "yard0.5");
    EXPECT_EQ(filled("plain"), "plain");
    EXPECT_EQ(filled(""), "");
    EXPECT_EQ(filled("{[\"k}\"]}"), "1");
}

TEST(Pattern, KnowsTheTopic) {
    EXPECT_EQ(filled("{topic}"), "frigate/yard/person");
    EXPECT_EQ(filled("{topic.1}: {topic.2}"), "yard: person");
    EXPECT_EQ(filled("{topic.3}"), "?");
}

TEST(Pattern, MissingValueHasASubstituteOrSpoilsTheText) {
    EXPECT_EQ(filled("the {x}"), "the ?");
    EXPECT_EQ(filled("the {none}"), "the ?");
    EXPECT_EQ(filled("the {x}", std::nullopt), std::nullopt);
}

TEST(Pattern, ResultIsOneLineOfBoundedLength) {
    EXPECT_EQ(filled("{line}"), "a b");
    EXPECT_EQ(filled(std::string(300, 'x'))->size(), 255U);
    std::string umlauts;
    for (int i = 0; i < 200; ++i) {
        umlauts += "ä";
    }
    EXPECT_EQ(filled(umlauts)->size(), 254U);
}

TEST(Pattern, TwoBracesAreOne) {
    EXPECT_EQ(filled("{{camera} {{ {camera}"), "{camera} { yard");
}

TEST(Pattern, MistakesAreNamed) {
    EXPECT_THAT(mistake("{camera"), testing::HasSubstr("without its"));
    EXPECT_THAT(mistake("{a.}"), testing::HasSubstr("{a.}"));
    EXPECT_THAT(mistake("{a b}"), testing::HasSubstr("in a key"));
}

} // namespace

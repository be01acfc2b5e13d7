#include "appliance/mqtt/rules/topic_filter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using mqtt::fitsFilter;

TEST(TopicFilter, WildcardsFitLevels) {
    EXPECT_TRUE(fitsFilter("a/b", "a/b"));
    EXPECT_TRUE(fitsFilter("a/b", "a/+"));
    EXPECT_TRUE(fitsFilter("a/b/c", "a/#"));
    EXPECT_TRUE(fitsFilter("a", "a/#"));
    EXPECT_TRUE(fitsFilter("a/b/c", "+/b/+"));
    EXPECT_TRUE(fitsFilter("/a", "+/a"));
    EXPECT_TRUE(fitsFilter("a/", "a/+"));
    EXPECT_TRUE(fitsFilter("a", "#"));
}

TEST(TopicFilter, OtherTopicsDoNotFit) {
    EXPECT_FALSE(fitsFilter("a/b", "a"));
    EXPECT_FALSE(fitsFilter("a", "a/+"));
    EXPECT_FALSE(fitsFilter("a/b/c", "a/+"));
    EXPECT_FALSE(fitsFilter("ab", "a/#"));
    EXPECT_FALSE(fitsFilter("a/", "a"));
    EXPECT_FALSE(fitsFilter("a", "a/"));
    EXPECT_FALSE(fitsFilter("a/b", "a/+/c"));
}

TEST(TopicFilter, WildcardsDoNotFitTheBrokersOwnTopics) {
    EXPECT_FALSE(fitsFilter("$SYS/uptime", "#"));
    EXPECT_FALSE(fitsFilter("$SYS/uptime", "+/uptime"));
    EXPECT_TRUE(fitsFilter("$SYS/uptime", "$SYS/#"));
}

TEST(TopicFilter, MistakesAreNamed) {
    EXPECT_EQ(mqtt::filterMistake("a/+/b/#"), "");
    EXPECT_THAT(mqtt::filterMistake(""), testing::HasSubstr("empty"));
    EXPECT_THAT(mqtt::filterMistake("a/b+"), testing::HasSubstr("\"+\""));
    EXPECT_THAT(mqtt::filterMistake("a/#/b"), testing::HasSubstr("\"#\""));
    EXPECT_THAT(mqtt::filterMistake("a#"), testing::HasSubstr("\"#\""));
    EXPECT_THAT(mqtt::filterMistake(std::string(2000, 'a')), testing::HasSubstr("1024 bytes"));
    EXPECT_THAT(mqtt::filterMistake("a\nb"), testing::HasSubstr("one line"));
}

TEST(TopicFilter, LevelsAreCounted) {
    EXPECT_EQ(mqtt::topicLevel("a/b/c", 0), "a");
    EXPECT_EQ(mqtt::topicLevel("a/b/c", 2), "c");
    EXPECT_EQ(mqtt::topicLevel("a/b/c", 3), "");
    EXPECT_EQ(mqtt::topicLevel("a", 1), "");
}

TEST(TopicFilter, OwnTopicHasASiteAndAName) {
    EXPECT_EQ(mqtt::ownTopicMistake("skelmor/hall"), "");
    EXPECT_EQ(mqtt::ownTopicMistake("a/b/c"), "");
    for (const char* topic : {"hall", "/hall", "skelmor/", ""}) {
        EXPECT_NE(mqtt::ownTopicMistake(topic), "") << topic;
    }
    EXPECT_THAT(mqtt::ownTopicMistake("skelmor/_all"), testing::HasSubstr("\"_\""));
    EXPECT_THAT(mqtt::ownTopicMistake("skelmor/+"), testing::HasSubstr("filters"));
}

} // namespace

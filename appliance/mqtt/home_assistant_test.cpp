#include "appliance/mqtt/home_assistant.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <set>

namespace {

using nlohmann::json;

TEST(HomeAssistant, EveryEntityBelongsToTheDeviceAndHasItsOwnIdentifier) {
    const auto messages = mqtt::introduction("homeassistant", "site/hall", {"Door", "Yard"});
    std::set<std::string> identifiers;
    for (const auto& [topic, payload] : messages) {
        const json message = json::parse(payload);
        EXPECT_TRUE(topic.starts_with("homeassistant/") && topic.ends_with("/config")) << topic;
        EXPECT_EQ(message["device"]["identifiers"], json({"site_hall"}));
        EXPECT_EQ(message["availability_topic"], "site/hall/availability");
        EXPECT_TRUE(message.contains("state_topic") || topic.find("/button/") != std::string::npos) << topic;
        identifiers.insert(message["unique_id"].get<std::string>());
    }
    EXPECT_EQ(identifiers.size(), messages.size());
}

TEST(HomeAssistant, TopicsAreThoseOfTheMessages) {
    std::vector<std::string> topics;
    for (const auto& [topic, payload] : mqtt::introduction("ha", "site/hall", {})) {
        topics.push_back(topic);
    }
    EXPECT_EQ(mqtt::introductionTopics("ha", "site/hall"), topics);
}

TEST(HomeAssistant, IdentifiersOfDifferentTopicsDiffer) {
    std::set<std::string> first;
    for (const char* topic : {"a/b", "a_b/c", "a/b_c", "a b/c", "a-20b/c", "ä/b"}) {
        first.insert(mqtt::introductionTopics("ha", topic).front());
    }
    EXPECT_EQ(first.size(), 6U);
}

} // namespace

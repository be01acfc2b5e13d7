#include "appliance/mqtt/configuration.h"

#include "appliance/operating/operating_fixture.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class MqttConfiguration : public OperatingTest {};

TEST_F(MqttConfiguration, ReadsBrokerAndRules) {
    configure("[Mqtt]\nBroker = mqtts://broker:99\nUserName = u\nPassword = p\nTopic = house/west/hall\n"
              "Groups = a, b c ,, a, d/e\nMaximumAge = 30\n"
              "[Rule.Door]\nTopic = z/door\nSource = Door\n[Rule.Bad]\nTopic = z/#/x\nSource = Door\n");
    const mqtt::Configuration configuration = mqtt::readConfiguration();
    EXPECT_EQ(configuration.mistake, "");
    EXPECT_EQ(configuration.link.broker.text(), "mqtts://broker:99");
    EXPECT_EQ(configuration.link.user, "u");
    EXPECT_EQ(configuration.link.password, "p");
    EXPECT_EQ(configuration.link.willTopic, "house/west/hall/availability");
    EXPECT_EQ(configuration.site(), "house/west");
    EXPECT_EQ(configuration.name(), "hall");
    EXPECT_EQ(configuration.maximumAge, 30);
    EXPECT_THAT(configuration.groups, ElementsAre("a", "b c"));
    ASSERT_EQ(configuration.rules.size(), 1U);
    EXPECT_EQ(configuration.rules[0].name, "Door");
    ASSERT_EQ(configuration.ruleMistakes.size(), 1U);
    EXPECT_THAT(configuration.ruleMistakes[0], HasSubstr("Rule.Bad: Topic"));
}

TEST_F(MqttConfiguration, HasUsualValues) {
    configure("");
    const mqtt::Configuration configuration = mqtt::readConfiguration();
    EXPECT_EQ(configuration.mistake, "Mqtt.Broker is not set");
    EXPECT_EQ(configuration.site(), "skelmor");
    EXPECT_NE(configuration.name(), "");
    EXPECT_EQ(configuration.discoveryPrefix, "homeassistant");
    EXPECT_EQ(configuration.maximumAge, 10);
    EXPECT_FALSE(configuration.discovery);
}

TEST_F(MqttConfiguration, MistakeInTheTopicIsNamed) {
    configure("[Mqtt]\nBroker = mqtt://broker\nTopic = hall\n");
    EXPECT_EQ(mqtt::readConfiguration().mistake, "Mqtt.Topic is not SITE/NAME");
}

} // namespace

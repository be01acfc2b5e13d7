#include "appliance/mqtt/rules/broker_url.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

mqtt::BrokerUrl read(const std::string& text) {
    mqtt::BrokerUrl url;
    EXPECT_EQ(mqtt::readBrokerUrl(text, url), "") << text;
    return url;
}

TEST(BrokerUrl, HasThePortOfItsScheme) {
    EXPECT_EQ(read("mqtt://broker").text(), "mqtt://broker:1883");
    EXPECT_EQ(read("mqtts://broker").text(), "mqtts://broker:8883");
    EXPECT_EQ(read("mqtts://broker:99").text(), "mqtts://broker:99");
}

TEST(BrokerUrl, TakesAddressesOfBothKinds) {
    EXPECT_EQ(read("mqtt://[::1]:1884").host, "::1");
    EXPECT_EQ(read("mqtt://[::1]").text(), "mqtt://[::1]:1883");
    EXPECT_EQ(read("mqtt://127.0.0.1/").host, "127.0.0.1");
}

TEST(BrokerUrl, CredentialsAndPathAreApart) {
    const mqtt::BrokerUrl url = read("mqtt://hall:p%40ss:%zz@broker/house/west");
    EXPECT_EQ(url.user, "hall");
    EXPECT_EQ(url.password, "p@ss:%zz");
    EXPECT_EQ(url.path, "house/west");
    EXPECT_EQ(url.text(), "mqtt://broker:1883");
}

TEST(BrokerUrl, MistakesAreNamed) {
    EXPECT_THAT(mqtt::brokerMistake("http://broker"), testing::HasSubstr("neither mqtt:// nor mqtts://"));
    EXPECT_THAT(mqtt::brokerMistake("mqtt://"), testing::HasSubstr("no host"));
    EXPECT_THAT(mqtt::brokerMistake("mqtt://broker:0"), testing::HasSubstr("1 to 65535"));
    EXPECT_THAT(mqtt::brokerMistake("mqtt://broker:x"), testing::HasSubstr("1 to 65535"));
    EXPECT_THAT(mqtt::brokerMistake("mqtt://[::1"), testing::HasSubstr("without its"));
    EXPECT_THAT(mqtt::brokerMistake("mqtt://[::1]1883"), testing::HasSubstr("other than a port"));
    EXPECT_THAT(mqtt::brokerMistake("mqtt://a b"), testing::HasSubstr("no host has"));
    EXPECT_THAT(mqtt::brokerMistake("mqtt://u:p@broker"), testing::HasSubstr("keys of their own"));
    EXPECT_THAT(mqtt::brokerMistake("mqtt://broker/site"), testing::HasSubstr("path"));
    EXPECT_EQ(mqtt::brokerMistake("mqtt://broker"), "");
}

} // namespace

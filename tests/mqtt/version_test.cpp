// Brokers that speak only MQTT 3.1.1.
#include "tests/mqtt/bridge_fixture.h"
#include "tests/mqtt/old_broker.h"

namespace {

using mqtt_test::OldBroker;
using testing::HasSubstr;

class MqttVersion : public mqtt_test::Bridge, public testing::WithParamInterface<OldBroker::Refusal> {};

TEST_P(MqttVersion, OldBrokerIsSpokenToInItsVersion) {
    mqtt_test::Broker broker;
    OldBroker old(broker.port(), GetParam());
    configureBridge(old.url());
    becomeTheDecoder();
    startBridge();
    mqtt_test::Listener listener(broker.url());
    ASSERT_TRUE(listener.waitForPayload(of("availability"), "online")) << log();
    EXPECT_THAT(listener.command(topic, "select", "nowhere")["text"].get<std::string>(),
                HasSubstr("there is no source"));
    EXPECT_EQ(old.refused(), 1) << "the version is remembered";
    EXPECT_EQ(old.accepted(), 1);
    EXPECT_EQ(countInLog(" 3 "), 0U) << "this is no failure\n" << log();

    const appliance::Finished status =
        appliance::runToEnd({HOUSE_PROGRAMS "/decoderctl", "--fleet", old.url() + "/site", "status"}, {});
    EXPECT_EQ(status.status, 0) << status.errors;
    EXPECT_THAT(status.output, HasSubstr("hall"));
}

TEST_P(MqttVersion, OldCommandsOfAnOldBrokerAreDropped) {
    mqtt_test::Broker broker;
    mqtt_test::Listener listener(broker.url());
    listener.publish(of("command/select"), "0", true); // the broker keeps it
    ASSERT_TRUE(listener.waitForPayload(of("command/select"), "0"));
    OldBroker old(broker.port(), GetParam());
    configureBridge(old.url());
    becomeTheDecoder();
    startBridge();
    ASSERT_TRUE(listener.waitForPayload(of("availability"), "online")) << log();
    ASSERT_TRUE(listener.waitFor([&] { return listener.count(of("reply")) > 0; })) << log();
    EXPECT_EQ(listener.json(of("reply"))["done"], false);
}

INSTANTIATE_TEST_SUITE_P(Refusals, MqttVersion,
                         testing::Values(OldBroker::Refusal::OfVersion3, OldBroker::Refusal::OfVersion5),
                         [](const auto& refusal) {
                             return refusal.param == OldBroker::Refusal::OfVersion3 ? "OfVersion3"
                                                                                    : "OfVersion5";
                         });

} // namespace

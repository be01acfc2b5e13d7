// The panel's fleet with a real broker: its connection on the main loop, commands and replies, a broker that goes and comes.
#include "appliance/operating/refused.h"
#include "appliance/panel/fleet/broker_connection.h"
#include "appliance/panel/fleet/fleet.h"
#include "tests/mqtt/broker.h"
#include "tests/mqtt/listener.h"

#include <gmock/gmock.h>

namespace {

using nlohmann::json;

class PanelFleet : public testing::Test {
protected:
    void SetUp() override {
        if (const std::string reason = peers::missing({"mosquitto"}); !reason.empty()) {
            GTEST_SKIP() << reason;
        }
        broker.emplace();
        settings.site = "site";
        ASSERT_EQ(mqtt::readBrokerUrl(broker->url(), settings.link.broker), "");
    }

    // A decoder that was there before the panel, and its list of sources.
    void startDecoder() {
        decoder.emplace(broker->url());
        decoder->publish("site/hall/availability", "online", true);
        decoder->publish("site/hall/sources", R"([{"name": "Door"}])", true);
        ASSERT_TRUE(decoder->waitForPayload("site/hall/availability", "online"));
    }

    // Serves the main loop and the decoder until the condition is true.
    template<class Condition>
    bool serveUntil(Condition condition) {
        return appliance::eventually([&] {
            while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
            }
            if (decoder && decoder->connected()) {
                decoder->receive(5);
            }
            return condition();
        });
    }

    bool serveUntilState(const std::string& state) {
        return serveUntil([&] { return fleet.now()["broker"]["state"] == state; });
    }

    std::optional<mqtt_test::Broker> broker;
    std::optional<mqtt_test::Listener> decoder;
    panel::FleetSettings settings;
    int events = 0;
    panel::Fleet fleet{std::make_unique<panel::BrokerConnection>(), [this](const std::string&) { ++events; }};
};

TEST_F(PanelFleet, KnowsWhatTheBrokerKeepsAndTakesReplies) {
    startDecoder();
    fleet.configure(settings);
    ASSERT_TRUE(serveUntilState("connected"));
    const json now = fleet.now();
    ASSERT_EQ(now["decoders"].size(), 1U) << now;
    EXPECT_EQ(now["decoders"][0]["online"], true);
    EXPECT_EQ(now["decoders"][0]["sources"], json({"Door"}));
    std::vector<panel::FleetOutcome> outcomes;
    fleet.command({"select", "Door", "", "", {}}, [&](const auto& all) { outcomes = all; });
    ASSERT_TRUE(serveUntil([&] { return !decoder->newest("site/_all/command/select").empty(); }));
    const json command = json::parse(decoder->newest("site/_all/command/select"));
    EXPECT_EQ(command["source"], "Door");
    decoder->publish("site/hall/reply",
                     json{{"id", command["id"]}, {"done", true}, {"text", "selected"}}.dump());
    ASSERT_TRUE(serveUntil([&] { return !outcomes.empty(); }));
    EXPECT_TRUE(outcomes[0].done);
    EXPECT_EQ(outcomes[0].text, "selected");
    EXPECT_TRUE(serveUntil([&] { return events > 0; }));
}

TEST_F(PanelFleet, FindsTheBrokerAgain) {
    startDecoder();
    fleet.configure(settings);
    ASSERT_TRUE(serveUntilState("connected"));
    broker->stop();
    ASSERT_TRUE(serveUntilState("lost"));
    EXPECT_EQ(fleet.now()["decoders"].size(), 1U) << "a loss of the broker loses no decoder";
    EXPECT_THROW(fleet.command({"select", "Door", "", "", {}}, nullptr), Refused);
    broker->start();
    ASSERT_TRUE(serveUntilState("connected"));
    EXPECT_EQ(fleet.now()["decoders"][0]["online"], false) << "until it says so again";
    startDecoder();
    EXPECT_TRUE(serveUntil([&] { return fleet.now()["decoders"][0]["online"] == true; }));
}

TEST_F(PanelFleet, SaysWhyThereIsNoConnection) {
    broker->stop();
    fleet.configure(settings);
    ASSERT_TRUE(serveUntilState("lost"));
    EXPECT_NE(fleet.now()["broker"]["reason"], json());
}

} // namespace

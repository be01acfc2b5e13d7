#include "appliance/operating/refused.h"
#include "appliance/panel/fleet/fleet.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace panel {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;

// A broker in this process: it remembers what it is told.
class FakeBroker : public Broker {
public:
    void begin(const mqtt::LinkSettings& /*settings*/, BrokerNews news) override {
        ++begun;
        news_ = std::move(news);
    }
    void end() override { ++ended; }
    void subscribe(const std::string& filter, mqtt::Link::Old /*old*/) override { filters.push_back(filter); }
    void publish(const std::string& topic, const std::string& payload, int expirySeconds) override {
        EXPECT_GT(expirySeconds, 0);
        published.emplace_back(topic, payload);
    }

    void send(const std::string& topic, const std::string& payload) {
        mqtt::Message message;
        message.topic = topic;
        message.payload = payload;
        news_.message(message);
    }
    void connect() { news_.connected(); }
    void lose(const std::string& reason) { news_.lost(reason); }

    int begun = 0;
    int ended = 0;
    std::vector<std::string> filters;
    std::vector<std::pair<std::string, std::string>> published;

private:
    BrokerNews news_;
};

class FleetTest : public testing::Test {
protected:
    FleetTest()
        : broker(new FakeBroker), fleet(std::unique_ptr<Broker>(broker),
                                        [this](const std::string& event) { events.push_back(event); }) {}

    static FleetSettings settings() {
        FleetSettings settings;
        settings.site = "site";
        settings.link.broker.host = "127.0.0.1";
        settings.link.broker.port = 1883;
        return settings;
    }

    // A broker that knows hall and roof, and cellar, which is offline.
    void connect() {
        fleet.configure(settings());
        broker->connect();
        for (const char* name : {"hall", "roof"}) {
            broker->send(of(name, "availability"), "online");
            broker->send(of(name, "presence"), R"({"time": 20, "online": true, "since": 10})");
        }
        broker->send(of("hall", "state"), R"({"running": true, "connected": true, "groups": ["lobby"],
                     "source": {"index": 1, "name": "Yard"}, "error": {"code": "32", "text": "away"}})");
        broker->send(of("hall", "sources"), R"([{"name": "Door"}, {"name": "Yard"}])");
        broker->send(of("cellar", "availability"), "offline");
        broker->send(of("cellar", "presence"), R"({"time": 20, "online": true, "since": 10})");
        broker->send(broker->published.back().first, "");
        broker->published.clear();
    }

    static std::string of(const std::string& decoder, const std::string& what) {
        return "site/" + decoder + '/' + what;
    }

    void command(const FleetCommand& command) {
        fleet.command(command, [this](const std::vector<FleetOutcome>& all) {
            ++answered;
            outcomes = all;
        });
    }

    void reply(const std::string& decoder, bool done, const std::string& text) {
        const json sent = json::parse(broker->published.back().second);
        broker->send(of(decoder, "reply"), json{{"id", sent["id"]}, {"done", done}, {"text", text}}.dump());
    }

    // Runs the main loop until the condition is true; at most that long.
    template<class Condition>
    bool within(unsigned seconds, Condition condition) {
        bool over = false;
        const SourceHandle limit = every(seconds * 1000, [&] { over = true; });
        while (!condition() && !over)
            g_main_context_iteration(nullptr, TRUE);
        return condition();
    }

    FakeBroker* broker;
    std::vector<std::string> events;
    Fleet fleet;
    int answered = 0;
    std::vector<FleetOutcome> outcomes;
};

TEST_F(FleetTest, WithoutABrokerItSaysWhy) {
    FleetSettings none;
    none.mistake = "Mqtt.Broker is not set";
    fleet.configure(none);
    EXPECT_EQ(fleet.now()["broker"]["state"], "none");
    EXPECT_EQ(broker->begun, 0);
    try {
        command({"select", "Yard", "", "", {}});
        FAIL() << "not refused";
    } catch (const Refused& refused) {
        EXPECT_THAT(refused.what(), HasSubstr("Mqtt.Broker is not set"));
    }
    EXPECT_THROW(fleet.requireBroker(), Refused);
    EXPECT_THROW(fleet.targets(), Refused);
}

TEST_F(FleetTest, TellsWhatTheDecodersPublish) {
    connect();
    const json now = fleet.now();
    EXPECT_EQ(now["broker"]["state"], "connected");
    EXPECT_EQ(now["broker"]["url"], "mqtt://127.0.0.1:1883");
    ASSERT_EQ(now["decoders"].size(), 3U);
    const json& cellar = now["decoders"][0];
    EXPECT_EQ(cellar["lost"], true);
    EXPECT_EQ(cellar["since"], 20) << "its last sign";
    const json& hall = now["decoders"][1];
    EXPECT_EQ(hall["source"], "Yard");
    EXPECT_EQ(hall["error"]["text"], "away");
    EXPECT_EQ(hall["sources"], json({"Door", "Yard"}));
    EXPECT_EQ(hall["since"], 10);
    EXPECT_TRUE(now["decoders"][2]["source"].is_null());
}

TEST_F(FleetTest, ALostBrokerLosesNoDecoder) {
    connect();
    broker->lose("gone");
    EXPECT_EQ(fleet.now()["broker"]["state"], "lost");
    EXPECT_EQ(fleet.now()["broker"]["reason"], "gone");
    EXPECT_EQ(fleet.now()["decoders"].size(), 3U);
    EXPECT_THROW(command({"select", "Yard", "", "", {}}), Refused);
    broker->connect();
    EXPECT_EQ(fleet.now()["decoders"].size(), 3U);
    EXPECT_EQ(fleet.now()["decoders"][1]["online"], false) << "until it says so again";
}

TEST_F(FleetTest, SendsToAllToAGroupOrToSome) {
    connect();
    command({"select", "Yard", "", "", {}});
    EXPECT_EQ(broker->published.back().first, "site/_all/command/select");
    command({"alarm", "Yard", "Person", "lobby", {}});
    EXPECT_EQ(broker->published.back().first, "site/_group/lobby/command/alarm");
    EXPECT_EQ(json::parse(broker->published.back().second)["text"], "Person");
    broker->published.clear();
    command({"select", "Yard", "", "", {"hall", "roof"}});
    ASSERT_EQ(broker->published.size(), 2U);
    EXPECT_EQ(broker->published[1].first, "site/roof/command/select");
    EXPECT_THROW(command({"select", "Yard", "", "attic", {}}), Refused);
    EXPECT_THROW(command({"select", "Yard", "", "", {"nobody"}}), Refused);
    EXPECT_EQ(broker->published.size(), 2U);
}

TEST_F(FleetTest, AnswersWhenAllThatAreOnlineHaveAnswered) {
    connect();
    command({"select", "Yard", "", "", {}});
    reply("hall", true, "selected 1 \"Yard\"");
    broker->send(of("roof", "reply"), R"({"id": "of another client", "done": true})");
    broker->send(of("roof", "reply"), "[]");
    EXPECT_EQ(answered, 0);
    reply("roof", false, "there is no source \"Yard\"");
    reply("roof", true, "late");
    ASSERT_EQ(answered, 1);
    ASSERT_EQ(outcomes.size(), 3U);
    EXPECT_EQ(outcomes[0].text, "offline");
    EXPECT_TRUE(outcomes[1].done);
    EXPECT_FALSE(outcomes[2].done);
    EXPECT_EQ(outcomes[2].text, "there is no source \"Yard\"");
}

TEST_F(FleetTest, DoesNotWaitForEver) {
    connect();
    command({"select", "Yard", "", "lobby", {}});
    EXPECT_TRUE(within(60, [this] { return answered == 1; }));
    ASSERT_EQ(outcomes.size(), 1U);
    EXPECT_EQ(outcomes[0].text, "no answer");
}

TEST_F(FleetTest, OnlyOfflineDecodersAreAnsweredAtOnce) {
    connect();
    command({"select", "Yard", "", "", {"cellar"}});
    EXPECT_TRUE(within(60, [this] { return answered == 1; }));
    EXPECT_EQ(outcomes[0].text, "offline");
}

TEST_F(FleetTest, TakesAFewCommandsAtATime) {
    connect();
    for (std::size_t i = 0; i < Fleet::mostCommands; ++i)
        command({"select", "Yard", "", "", {}});
    EXPECT_THROW(command({"select", "Yard", "", "", {}}), Refused);
    fleet.configure({"changed", {}, ""});
    EXPECT_EQ(answered, static_cast<int>(Fleet::mostCommands)) << "nobody waits for a broker that was left";
}

TEST_F(FleetTest, ManyNewsAreOneEvent) {
    connect();
    for (int i = 0; i < 1000; ++i)
        broker->send(of("decoder-" + std::to_string(i % 200), "availability"),
                     i % 2 == 0 ? "online" : "offline");
    EXPECT_TRUE(events.empty());
    EXPECT_TRUE(within(60, [this] { return !events.empty(); }));
    EXPECT_EQ(json::parse(events.front())["decoders"].size(), 203U);
    broker->send(of("hall", "presence"), R"({"time": 90, "online": true, "since": 10})");
    EXPECT_FALSE(within(2, [this] { return events.size() > 1; })) << "a sign of life is no news";
    EXPECT_EQ(events.size(), 1U);
}

TEST_F(FleetTest, TheSameSettingsKeepTheConnection) {
    connect();
    fleet.configure(settings());
    EXPECT_EQ(broker->begun, 1);
    FleetSettings other = settings();
    other.site = "house";
    fleet.configure(other);
    EXPECT_EQ(broker->begun, 2);
    EXPECT_TRUE(fleet.now()["decoders"].empty());
}

TEST_F(FleetTest, TargetsArePanelsOfDecoders) {
    connect();
    broker->send(of("hall", "presence"),
                 R"({"time": 1, "online": true, "panel": "https://hall.example:8088"})");
    EXPECT_EQ(fleet.targets(), json::parse(R"([{"targets": ["hall.example:8088"],
        "labels": {"__scheme__": "https", "decoder_name": "hall", "site": "site"}}])"));
}

} // namespace
} // namespace panel

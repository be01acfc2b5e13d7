// The whole decoder over MQTT: commands, and alarms from detectors in both modes.
#include "tests/mqtt/decoder_fixture.h"

#include <fstream>

namespace {

using mqtt_test::MqttDecoder;
using nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;

class MqttCommands : public MqttDecoder {};

TEST_F(MqttCommands, SelectShowsTheSourceAndTheStateFollows) {
    decoder->setManual();
    startAll();
    ASSERT_TRUE(decoder->showsMoving(0));
    EXPECT_TRUE(listener->waitFor([&] { return publishedSource() == 0; }));
    EXPECT_EQ(listener->command(topic, "select", "yard")["done"], true);
    EXPECT_TRUE(decoder->showsMoving(1));
    EXPECT_TRUE(listener->waitFor([&] { return publishedSource() == 1; }));
    EXPECT_EQ(listener->command(topic, "button", "press")["done"], true);
    EXPECT_TRUE(decoder->showsMoving(0)) << "the button goes to the next source";
    EXPECT_EQ(listener->command(topic, "button", "hold")["done"], true);
    EXPECT_TRUE(listener->waitForValue(of("state"), "connected", false));
    EXPECT_EQ(listener->command(topic, "connect", "")["done"], true);
    EXPECT_TRUE(listener->waitForValue(of("state"), "connected", true));
    EXPECT_EQ(listener->command(topic, "lock", "")["done"], true);
    EXPECT_TRUE(listener->waitForValue(of("state"), "connected", false));
    EXPECT_EQ(listener->command(topic, "reconnect", "")["done"], true);
    EXPECT_TRUE(listener->waitForValue(of("state"), "connected", true));
}

TEST_F(MqttCommands, KilledSupervisorIsReported) {
    decoder->setManual();
    startAll();
    ASSERT_TRUE(listener->waitFor([&] { return publishedSource() == 0; }));
    decoder->supervisor().signal(SIGKILL);
    decoder->supervisor().waitForEnd();
    EXPECT_TRUE(listener->waitForValue(of("state"), "running", false));
    EXPECT_EQ(listener->json(of("state"))["source"], nullptr);
    decoder->ctl({"sweep"});
}

// Events as an analytics program sends them: tests/mqtt/testdata/analytics_events.jsonl, one payload a line.
class MqttAlarms : public MqttDecoder {
protected:
    void addRule(const std::string& minimumTime = "0") {
        decoder->set("Rule.Person.Topic", "analytics/events");
        decoder->set("Rule.Person.Condition", "type = new and after.label = person and after.score > 0.6");
        decoder->set("Rule.Person.Source", "{after.camera}");
        decoder->set("Rule.Person.Text", "Person: {after.camera}");
        decoder->set("Rule.Person.MinimumTime", minimumTime);
    }

    void replay() {
        std::ifstream file(HOUSE_ROOT "/tests/mqtt/testdata/analytics_events.jsonl");
        std::size_t lines = 0;
        for (std::string line; std::getline(file, line); ++lines) {
            listener->publish("analytics/events", line);
        }
        ASSERT_GE(lines, 10U);
    }
};

TEST_F(MqttAlarms, InManualModeTheyAreAlarms) {
    decoder->setManual();
    addRule();
    startAll();
    ASSERT_TRUE(decoder->showsMoving(0));
    replay();
    EXPECT_TRUE(decoder->waitForText(1, "ALARM: Yard("));
    EXPECT_TRUE(decoder->waitForText(2, "Message: Person: yard"));
    EXPECT_TRUE(decoder->showsMoving(1));
    EXPECT_TRUE(listener->waitForValue(of("state"), "alarm", {{"text", "Person: yard"}}));
    EXPECT_TRUE(listener->waitForValue(of("state"), "alarm", nullptr)) << "after its display time";
    EXPECT_TRUE(listener->waitFor([&] { return !event("rule").is_null(); }));
    EXPECT_EQ(event("rule")["as"], "alarm");
    EXPECT_EQ(event("rule")["done"], true);
    EXPECT_TRUE(decoder->showsMoving(1)) << "the alarm's source stays";
}

TEST_F(MqttAlarms, InAutomaticModeTheySelectAndNothingStaysQueued) {
    for (int source = 0; source < 2; ++source) {
        decoder->set(source == 0 ? "Encoder.Door.DisplayTime" : "Encoder.Yard.DisplayTime", "60");
    }
    decoder->set("Alarm.DisplayTime", "3");
    addRule();
    startAll();
    ASSERT_TRUE(decoder->showsMoving(0));
    replay();
    EXPECT_TRUE(decoder->waitForText(2, "Person: yard"));
    EXPECT_TRUE(decoder->showsMoving(1));
    EXPECT_TRUE(listener->waitFor([&] { return !event("rule").is_null(); }));
    EXPECT_EQ(event("rule")["as"], "select");
    EXPECT_TRUE(listener->waitForValue(of("state"), "alarm", nullptr))
        << "the text goes after its display time";
    EXPECT_THAT(decoder->text(1), testing::Not(StartsWith("ALARM")));
    // An alarm that was kept would show as soon as the mode is manual.
    EXPECT_EQ(decoder->ctl({"select", "0"}).status, 0);
    ASSERT_TRUE(decoder->showsMoving(0));
    EXPECT_EQ(decoder->ctl({"set", "Decoder.SequenceMode", "manual"}).status, 0);
    EXPECT_EQ(decoder->ctl({"apply"}).status, 0);
    ASSERT_TRUE(decoder->showsMoving(0));
    ASSERT_TRUE(decoder->waitForState("MANUAL_WAIT_FOR_NEW_SELECTION"));
    appliance::pause(std::chrono::milliseconds(500));
    EXPECT_EQ(decoder->currentSource(), 0);
    EXPECT_EQ(decoder->text(2), "");
}

TEST_F(MqttAlarms, InAutomaticModeADisconnectedDecoderStaysSo) {
    decoder->set("Decoder.AutoConnect", "no");
    decoder->set("Decoder.Connected", "no");
    addRule();
    startAll();
    ASSERT_TRUE(decoder->waitForState("DISCONNECTED"));
    replay();
    EXPECT_TRUE(listener->waitFor([&] { return !event("rule").is_null(); }));
    EXPECT_EQ(event("rule")["done"], false);
    EXPECT_THAT(event("rule")["answer"].get<std::string>(), HasSubstr("disconnected"));
    appliance::pause(std::chrono::milliseconds(300));
    EXPECT_EQ(decoder->state(), "DISCONNECTED");
}

TEST_F(MqttAlarms, ModeInForceCountsAndNotTheOneInTheFile) {
    addRule();
    startAll();
    ASSERT_TRUE(decoder->showsMoving(0));
    EXPECT_EQ(decoder->ctl({"set", "Decoder.SequenceMode", "manual"}).status, 0); // at the next connect
    listener->publish("analytics/events",
                      R"({"type": "new", "after": {"label": "person", "camera": "yard", "score": 0.9}})");
    EXPECT_TRUE(listener->waitFor([&] { return !event("rule").is_null(); }));
    EXPECT_EQ(event("rule")["as"], "select");
}

TEST_F(MqttAlarms, DisabledAlarmsAndOldOrRetainedMessagesDoNothing) {
    decoder->setManual();
    addRule();
    startAll();
    ASSERT_TRUE(decoder->showsMoving(0));
    const std::string person =
        R"("type": "new", "after": {"label": "person", "camera": "yard", "score": 0.9}})";
    listener->publish("analytics/events", "{\"time\": 1000000000, " + person);
    listener->publish("analytics/other", "{" + person);
    listener->publish("analytics/events", "{" + person.substr(0, 30));
    EXPECT_EQ(listener->command(topic, "volume", "50")["done"], true) << "all of these were looked at";
    EXPECT_TRUE(event("rule").is_null());
    EXPECT_EQ(decoder->ctl({"set", "Alarm.Enabled", "no"}).status, 0);
    listener->publish("analytics/events", "{" + person, true);
    EXPECT_TRUE(listener->waitFor([&] { return !event("rule").is_null(); }));
    EXPECT_EQ(event("rule")["done"], false);
    EXPECT_THAT(event("rule")["answer"].get<std::string>(), HasSubstr("Alarm.Enabled"));
    // The broker keeps it now. After a new connection it would come again, if it were asked for.
    EXPECT_EQ(decoder->ctl({"set", "Alarm.Enabled", "yes"}).status, 0);
    listener->forget();
    EXPECT_EQ(decoder->ctl({"set", "Mqtt.Groups", "lobby"}).status, 0);
    EXPECT_TRUE(listener->waitForValue(of("state"), "groups", json({"lobby"})));
    EXPECT_EQ(listener->command(topic, "volume", "60")["done"], true);
    EXPECT_TRUE(event("rule").is_null());
    EXPECT_EQ(decoder->currentSource(), 0);
}

TEST_F(MqttAlarms, MinimumTimeIsBetweenTwoAlarmsOfARule) {
    decoder->setManual();
    decoder->set("Alarm.DisplayTime", "1");
    addRule("600");
    startAll();
    ASSERT_TRUE(decoder->showsMoving(0));
    for (int i = 0; i < 3; ++i) {
        replay();
        EXPECT_EQ(listener->command(topic, "volume", std::to_string(i))["done"], true);
    }
    std::size_t rules = 0;
    for (const mqtt::Message& message : listener->messages()) {
        rules += message.topic == of("event") && json::parse(message.payload)["event"] == "rule" ? 1 : 0;
    }
    EXPECT_EQ(rules, 1U);
}

} // namespace

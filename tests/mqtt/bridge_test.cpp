// What decoder-mqtt publishes, and the commands that it takes.
#include "tests/mqtt/bridge_fixture.h"

#include <csignal>
#include <ctime>

namespace {

using nlohmann::json;
using testing::HasSubstr;

class MqttBridge : public mqtt_test::Bridge {
protected:
    void startAll(const std::string& lines = "", const std::string& behind = "") {
        broker.emplace();
        configureBridge(broker->url(), lines, behind);
        becomeTheDecoder();
        startBridge();
        listener.emplace(broker->url());
        ASSERT_TRUE(listener->waitForPayload(of("availability"), "online")) << log();
    }

    json command(const std::string& word, const std::string& payload) {
        return listener->command(topic, word, payload);
    }

    std::optional<mqtt_test::Broker> broker;
    std::optional<mqtt_test::Listener> listener;
};

TEST_F(MqttBridge, PublishesStateAndSourcesAsTheyChange) {
    startAll("Groups = lobby, ground floor\n");
    const json sources = listener->json(of("sources"));
    ASSERT_EQ(sources.size(), 3U);
    EXPECT_EQ(sources[2]["name"], "Garage");
    EXPECT_EQ(sources[2]["index"], 2);
    json state = listener->json(of("state"));
    EXPECT_EQ(state["name"], "hall");
    EXPECT_EQ(state["groups"], json({"lobby", "ground floor"}));
    EXPECT_EQ(state["running"], true);
    EXPECT_EQ(state["connected"], false);
    EXPECT_EQ(state["source"], nullptr);

    setConnectedInfo(true);
    ParamWrapper(1, true)["Decoder.Info.CurrentSource"] = 1;
    EXPECT_TRUE(listener->waitForValue(of("state"), "source",
                                       {{"index", 1}, {"name", "Front yard"}, {"option", "Front yard"}}));
    status(1, "ErrorCode", "32");
    EXPECT_TRUE(listener->waitForValue(of("state"), "error",
                                       {{"code", "32"}, {"text", "no connection to the encoder"}}));
    EXPECT_TRUE(listener->waitFor([&] { return !listener->json(of("sources"))[1]["error"].is_null(); }));
    osdPrintf(1, 1, "ALARM: Garage(127.0.0.1:8083)");
    osdPrintf(2, 1, "Message: Door open");
    EXPECT_TRUE(listener->waitForValue(of("state"), "alarm", {{"text", "Door open"}}));
    EXPECT_TRUE(listener->waitForValue(of("state"), "alarm", nullptr))
        << "its time is over without a change of a file";
    EXPECT_GE(listener->count(of("event")), 4U);
}

TEST_F(MqttBridge, NoticesThatTheSupervisorEnds) {
    startAll();
    removeEventQueue();
    running = false;
    EXPECT_TRUE(listener->waitForValue(of("state"), "running", false));
}

TEST_F(MqttBridge, PasswordsStayInTheConfiguration) {
    startAll("Password = br0ker\nUserName = hall\n");
    for (const mqtt::Message& message : listener->messages()) {
        EXPECT_EQ(message.payload.find("s3cret"), std::string::npos) << message.topic;
        EXPECT_EQ(message.payload.find("br0ker"), std::string::npos) << message.topic;
    }
    EXPECT_EQ(log().find("br0ker"), std::string::npos);
    EXPECT_THAT(ctl({"sources", "--json"}).output, testing::Not(HasSubstr("br0ker")));
}

TEST_F(MqttBridge, SelectTakesNumberNameAndBeginning) {
    startAll();
    int expected = 0;
    for (const char* source : {"0", "front YARD", "Gar", R"({"source": "Garage"})", R"({"source": 0})"}) {
        const json reply = command("select", source);
        EXPECT_EQ(reply["done"], true) << reply;
        const Event event = nextEvent();
        EXPECT_EQ(event.id, EID_SELECT);
        EXPECT_EQ(event.value1, std::vector<int>({0, 1, 2, 2, 0}).at(static_cast<std::size_t>(expected++)));
    }
    const json reply = command("select", R"({"source": "Front", "id": "a1"})");
    EXPECT_EQ(reply["done"], false);
    EXPECT_EQ(reply["id"], "a1");
    EXPECT_THAT(reply["text"].get<std::string>(), HasSubstr("fits more than one source"));
}

TEST_F(MqttBridge, OtherCommandsReachTheDecoder) {
    startAll();
    EXPECT_EQ(command("alarm", R"({"source": "Garage", "text": "Door open"})")["done"], true);
    const Event alarm = nextEvent();
    EXPECT_EQ(alarm.id, EID_ALARM);
    EXPECT_EQ(alarm.value1, 2);
    EXPECT_STREQ(reinterpret_cast<const char*>(alarm.payload), "Door open");
    EXPECT_EQ(command("lock", "")["done"], true);
    EXPECT_EQ(nextEvent().id, EID_LOCK);
    EXPECT_EQ(command("reconnect", "{}")["done"], true);
    EXPECT_EQ(nextEvent().id, EID_RECONNECT);
    EXPECT_EQ(command("flush", "")["done"], true);
    EXPECT_EQ(nextEvent().id, EID_FLUSHCACHE);
    EXPECT_EQ(command("connect", "")["done"], true);
    EXPECT_EQ(nextEvent().id, EID_CONNECTPROPERTYCHANGED);
    EXPECT_TRUE(ParamWrapper(0, false)["Decoder.Connected"] == "yes");
    EXPECT_EQ(command("disconnect", "")["done"], true);
    EXPECT_EQ(nextEvent().id, EID_CONNECTPROPERTYCHANGED);
    EXPECT_EQ(command("volume", "40")["done"], true);
    EXPECT_TRUE(ParamWrapper(0, false)["Sound.Volume"] == "40");
    EXPECT_EQ(command("mute", "on")["done"], true);
    EXPECT_TRUE(ParamWrapper(1, false)["Sound.Info.Muted"] == "yes");
    EXPECT_EQ(command("mute", R"({"muted": false})")["done"], true);
    EXPECT_TRUE(ParamWrapper(1, false)["Sound.Info.Muted"] == "no");
}

TEST_F(MqttBridge, WrongCommandsAreRefusedWithTheReason) {
    startAll();
    const std::vector<std::array<std::string, 3>> wrong{
        {"select", "", "needs a source"},
        {"select", "[]", "there is no source"},
        {"select", R"({"source": {}})", "is not a text"},
        {"volume", "101", "from 0 to 100"},
        {"volume", "loud", "from 0 to 100"},
        {"button", "push", "press or hold"},
        {"mute", "maybe", "on or off"},
        {"lock", "now", "takes no value"},
        {"dance", "", "no command"},
        {"select", std::string(5000, 'x'), "longer than"},
        {"select", R"({"source": "0", "time": "noon"})", "seconds since 1970"}};
    for (const auto& [word, payload, reason] : wrong) {
        const json reply = command(word, payload);
        EXPECT_EQ(reply["done"], false) << word;
        EXPECT_THAT(reply["text"].get<std::string>(), HasSubstr(reason)) << word;
    }
}

TEST_F(MqttBridge, OldRetainedAndDoubledCommandsAreDropped) {
    startAll();
    const auto now = static_cast<double>(std::time(nullptr));
    EXPECT_THAT(
        command("select", json({{"source", "0"}, {"time", now - 60}}).dump())["text"].get<std::string>(),
        HasSubstr("seconds old"));
    EXPECT_EQ(command("select", json({{"source", "0"}, {"time", now}, {"id", "7"}}).dump())["done"], true);
    EXPECT_EQ(nextEvent().id, EID_SELECT);
    EXPECT_THAT(command("select", json({{"source", "1"}, {"id", "7"}}).dump())["text"].get<std::string>(),
                HasSubstr("received before"));
    listener->publish(of("command/select"), "2", true);
    EXPECT_TRUE(listener->waitFor([&] {
        return listener->json(of("reply")).value("text", "").find("retain flag") != std::string::npos;
    }));
    // The broker still has the retained one. A new connection does not carry it out either.
    bridge.reset();
    startBridge();
    ASSERT_TRUE(waitForLog("Connected to", 2));
    EXPECT_EQ(command("lock", "")["done"], true);
    EXPECT_EQ(nextEvent().id, EID_LOCK) << "and not a selection";
}

TEST_F(MqttBridge, CommandsToTheSiteAndToGroupsArrive) {
    startAll("Groups = lobby\n");
    const auto send = [&](const std::string& to) {
        const std::size_t before = listener->count(of("reply"));
        listener->publish("site/" + to + "/command/select", "1");
        listener->waitFor([&] { return listener->count(of("reply")) > before; },
                          appliance::Seconds(to == "_group/roof" ? 1 : 30));
        return listener->count(of("reply")) - before;
    };
    EXPECT_EQ(send("_all"), 1U);
    EXPECT_EQ(send("_group/lobby"), 1U);
    EXPECT_EQ(send("_group/roof"), 0U);
}

TEST_F(MqttBridge, SaysOfflineWhenItStopsAndWhenItDies) {
    startAll();
    bridge->signal(SIGTERM);
    EXPECT_EQ(bridge->waitForEnd(), 0);
    EXPECT_TRUE(listener->waitForPayload(of("availability"), "offline"));
    EXPECT_EQ(listener->json(of("presence"))["online"], false);
    startBridge();
    ASSERT_TRUE(listener->waitForPayload(of("availability"), "online"));
    bridge->signal(SIGKILL);
    EXPECT_TRUE(listener->waitForPayload(of("availability"), "offline"))
        << "the broker publishes the last will";
    EXPECT_EQ(listener->json(of("presence"))["online"], true) << "nobody could say since when";
}

TEST_F(MqttBridge, ChangedConfigurationIsInForceAtOnce) {
    startAll();
    configureBridge(broker->url(), "Groups = roof\n");
    EXPECT_TRUE(listener->waitForValue(of("state"), "groups", json({"roof"})));
    configure(std::string(configuration) + "[Mqtt]\nBroker = " + broker->url() + "\nTopic = site/other\n");
    EXPECT_TRUE(listener->waitForPayload("site/other/availability", "online"));
    EXPECT_TRUE(listener->waitForPayload(of("state"), "")) << "the old topic is emptied";
    EXPECT_EQ(listener->newest(of("availability")), "");
    configure(configuration);
    EXPECT_TRUE(listener->waitForPayload("site/other/availability", ""));
    EXPECT_TRUE(waitForLog("Mqtt.Broker is not set"));
}

TEST_F(MqttBridge, WritingOtherParametersKeepsTheConnection) {
    startAll();
    ParamWrapper(0, true)["Alarm.DisplayTime"] = 7;
    ParamWrapper(0, true)["Decoder.Connected"] = "yes";
    EXPECT_TRUE(listener->waitForValue(of("state"), "connectWanted", true));
    EXPECT_EQ(countInLog("Connected to"), 1U);
}

TEST_F(MqttBridge, IntroducesItselfToHomeAssistantAndLeaves) {
    startAll("Discovery = yes\n");
    const auto introduced = [&] {
        std::size_t entities = 0;
        std::map<std::string, bool> topics;
        for (const mqtt::Message& message : listener->messages()) {
            if (message.topic.starts_with("homeassistant/")) {
                topics[message.topic] = !message.payload.empty();
            }
        }
        for (const auto& [name, present] : topics) {
            entities += present ? 1 : 0;
        }
        return entities;
    };
    ASSERT_TRUE(listener->waitFor([&] { return introduced() == 12; }));
    const std::string place = "homeassistant/select/site_hall/source/config";
    const json select = listener->json(place);
    EXPECT_EQ(select["options"], json({"Front door", "Front yard", "Garage"}));
    EXPECT_EQ(select["command_topic"], "site/hall/command/select");
    EXPECT_EQ(select["state_topic"], "site/hall/state");
    EXPECT_EQ(select["availability_topic"], "site/hall/availability");
    EXPECT_EQ(select["device"]["identifiers"], json({"site_hall"}));
    configureBridge(broker->url());
    EXPECT_TRUE(listener->waitFor([&] { return introduced() == 0; }));
    EXPECT_TRUE(listener->waitForPayload(of("availability"), "online"));
}

TEST_F(MqttBridge, IntroductionIsRemovedAlsoWhenItWasDisabledMeanwhile) {
    startAll("Discovery = yes\n");
    bridge->signal(SIGTERM);
    bridge->waitForEnd();
    configureBridge(broker->url());
    startBridge();
    EXPECT_TRUE(listener->waitForPayload("homeassistant/select/site_hall/source/config", ""));
}

TEST_F(MqttBridge, ClearRemovesEverythingFromTheBroker) {
    startAll("Discovery = yes\n");
    bridge->signal(SIGTERM);
    bridge->waitForEnd();
    EXPECT_EQ(
        appliance::runToEnd({HOUSE_PROGRAMS "/decoder-mqtt", "--clear"}, {{"APPLIANCE_ROOT", root}}).status,
        0);
    mqtt_test::Listener later(broker->url());
    later.waitFor([] { return false; }, appliance::Seconds(0.5));
    for (const mqtt::Message& message : later.messages()) {
        EXPECT_FALSE(message.retained) << message.topic;
    }
    broker->stop();
    const appliance::Finished failed =
        appliance::runToEnd({HOUSE_PROGRAMS "/decoder-mqtt", "--clear"}, {{"APPLIANCE_ROOT", root}});
    EXPECT_EQ(failed.status, 1);
    EXPECT_THAT(failed.errors, HasSubstr("no connection to the broker"));
}

} // namespace

#include "appliance/mqtt/commands.h"

#include "appliance/operating/refused.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using mqtt::Command;

Command read(const std::string& word, const std::string& payload) {
    Command command;
    mqtt::readCommand(word, payload, command);
    return command;
}

TEST(MqttCommand, TextAndJsonMeanTheSame) {
    EXPECT_EQ(read("select", " Front door\n").source, "Front door");
    EXPECT_EQ(read("select", R"({"source": "Front door"})").source, "Front door");
    EXPECT_EQ(read("select", "7").source, "7");
    EXPECT_EQ(read("select", R"({"source": 7})").source, "7");
    EXPECT_EQ(read("select", "\"7\"").source, "7");
    EXPECT_EQ(read("volume", "40").percent, 40);
    EXPECT_EQ(read("volume", R"({"percent": 40})").percent, 40);
    EXPECT_TRUE(read("button", "hold").hold);
    EXPECT_FALSE(read("button", "").hold);
    EXPECT_TRUE(read("mute", "").muted);
    EXPECT_TRUE(read("mute", "on").muted);
    EXPECT_FALSE(read("mute", R"({"muted": false})").muted);
}

TEST(MqttCommand, AlarmTextIsOneLine) {
    EXPECT_EQ(read("alarm", R"({"source": "a", "text": "b\nc"})").text, "b c");
}

TEST(MqttCommand, IdIsKnownAlsoWhenTheCommandIsRefused) {
    Command command;
    EXPECT_THROW(mqtt::readCommand("volume", R"({"percent": 999, "id": "x", "time": 5})", command), Refused);
    EXPECT_EQ(command.id, "x");
    EXPECT_EQ(command.time, 5);
    EXPECT_THROW(mqtt::readCommand("dance", R"({"id": "y"})", command), Refused);
    EXPECT_EQ(command.id, "y");
}

TEST(MqttCommand, GateDropsWhatIsOldKeptOrDoubled) {
    mqtt::CommandGate gate;
    Command command;
    command.word = "lock";
    EXPECT_EQ(gate.refusal(command, false, 10, 1000), "");
    EXPECT_NE(gate.refusal(command, true, 10, 1000), "");
    command.time = 989;
    EXPECT_EQ(gate.refusal(command, false, 10, 1000), "the command is 11 seconds old");
    command.time = 991;
    EXPECT_EQ(gate.refusal(command, false, 10, 1000), "");
    command.time = -1e300;
    EXPECT_NE(gate.refusal(command, false, 10, 1000), "");
    command.time.reset();
    for (int i = 0; i < 65; ++i) {
        command.id = std::to_string(i);
        EXPECT_EQ(gate.refusal(command, false, 10, 1000), "");
    }
    EXPECT_NE(gate.refusal(command, false, 10, 1000), "");
    command.id = "0";
    EXPECT_EQ(gate.refusal(command, false, 10, 1000), "") << "only the last 64 are remembered";
}

TEST(MqttCommand, ReplyNamesTheCommand) {
    Command command;
    command.word = "lock";
    EXPECT_FALSE(mqtt::replyJson(command, true, "").contains("id"));
    command.id = "7";
    const nlohmann::json reply = mqtt::replyJson(command, true, "locked");
    EXPECT_EQ(reply["command"], "lock");
    EXPECT_EQ(reply["id"], "7");
    EXPECT_EQ(reply["done"], true);
}

} // namespace

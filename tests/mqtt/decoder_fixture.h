// A whole decoder with decoder-mqtt and a broker.
#pragma once

#include "tests/appliance/appliance.h"
#include "tests/mqtt/broker.h"
#include "tests/mqtt/listener.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>

namespace mqtt_test {

class MqttDecoder : public testing::Test {
protected:
    static constexpr const char* topic = "site/hall";

    void SetUp() override {
        if (const std::string reason = peers::missing({"mosquitto"}); !reason.empty()) {
            GTEST_SKIP() << reason;
        }
        decoder.emplace();
        broker.emplace();
        decoder->addEncoder("Door");
        decoder->addEncoder("Yard");
        decoder->set("Mqtt.Broker", broker->url());
        decoder->set("Mqtt.Topic", topic);
    }

    void startAll() {
        decoder->start();
        bridge = std::make_unique<appliance::Process>(
            std::vector<std::string>{appliance::Appliance::program("decoder-mqtt")},
            std::map<std::string, std::string>{{"APPLIANCE_ROOT", decoder->root()},
                                               {"LIBCOMMON_LOG", decoder->logFile()}},
            decoder->root() + "/bridge-output");
        listener.emplace(broker->url());
        ASSERT_TRUE(listener->waitForPayload(of("availability"), "online"));
    }

    static std::string of(const std::string& name) { return std::string(topic) + '/' + name; }

    // The source that the state names; -1: none.
    int publishedSource() {
        const nlohmann::json state = listener->json(of("state"));
        return state.is_object() && state["source"].is_object() ? state["source"]["index"].get<int>() : -1;
    }

    // The newest event of this kind; null when there is none.
    nlohmann::json event(const std::string& kind) {
        nlohmann::json newest;
        for (const mqtt::Message& message : listener->messages()) {
            if (message.topic == of("event")) {
                const nlohmann::json event = nlohmann::json::parse(message.payload);
                newest = event["event"] == kind ? event["value"] : newest;
            }
        }
        return newest;
    }

    std::optional<appliance::Appliance> decoder;
    std::optional<Broker> broker;
    std::unique_ptr<appliance::Process> bridge;
    std::optional<Listener> listener;

    void TearDown() override {
        bridge.reset();
        decoder.reset();
    }
};

} // namespace mqtt_test

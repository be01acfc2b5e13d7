// decoder-mqtt with a broker, under an appliance root where the test acts as the supervisor.
#pragma once

#include "tests/appliance/control_fixture.h"
#include "tests/mqtt/broker.h"
#include "tests/mqtt/listener.h"

#include <memory>
#include <optional>
#include <string>

namespace mqtt_test {

class Bridge : public Control {
protected:
    static constexpr const char* topic = "site/hall";

    void SetUp() override {
        if (const std::string reason = peers::missing({"mosquitto", "mosquitto_passwd"}); !reason.empty()) {
            GTEST_SKIP() << reason;
        }
    }

    // The usual sources, and the section [Mqtt] with these lines more.
    void configureBridge(const std::string& url, const std::string& lines = "",
                         const std::string& behind = "") const {
        configure(std::string(configuration) + "[Alarm]\nEnabled = yes\nDisplayTime = 3\n[Mqtt]\nBroker = " +
                  url + "\nTopic = " + topic + "\n" + lines + behind);
    }

    void startBridge() {
        bridge = std::make_unique<appliance::Process>(
            std::vector<std::string>{HOUSE_PROGRAMS "/decoder-mqtt"},
            std::map<std::string, std::string>{{"APPLIANCE_ROOT", root}, {"LIBCOMMON_LOG", logFile()}},
            root + "/bridge-output");
    }

    std::string logFile() const { return root + "/bridge-log"; }
    std::string log() const { return appliance::readFile(logFile()); }
    std::size_t countInLog(const std::string& text) const {
        const std::string all = log();
        std::size_t times = 0;
        for (std::size_t at = all.find(text); at != std::string::npos; at = all.find(text, at + 1)) {
            ++times;
        }
        return times;
    }
    bool waitForLog(const std::string& text, std::size_t times = 1) const {
        return appliance::eventually([&] { return countInLog(text) >= times; });
    }

    static std::string of(const std::string& name) { return std::string(topic) + '/' + name; }

    std::unique_ptr<appliance::Process> bridge; // ends before the broker
};

} // namespace mqtt_test

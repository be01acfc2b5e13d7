// The connection of decoder-mqtt: credentials, TLS, brokers that go and come.
#include "tests/mqtt/bridge_fixture.h"
#include "tests/support/certificate.h"

#include <csignal>
#include <ctime>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace {

using testing::HasSubstr;

class MqttConnection : public mqtt_test::Bridge {};

mqtt::LinkSettings clientOf(const mqtt_test::Broker& broker) {
    mqtt::LinkSettings settings;
    mqtt::readBrokerUrl(broker.url(), settings.broker);
    return settings;
}

// Processor time in clock ticks (user and system), of /proc/PID/stat.
long ticksOf(pid_t pid) {
    std::istringstream fields(appliance::readFile("/proc/" + std::to_string(pid) + "/stat"));
    std::string field;
    std::vector<std::string> all;
    while (fields >> field) {
        all.push_back(field);
    }
    return std::stol(all.at(13)) + std::stol(all.at(14));
}

long valueOf(pid_t pid, const std::string& file, const std::string& key) {
    std::istringstream lines(appliance::readFile("/proc/" + std::to_string(pid) + '/' + file));
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(key)) {
            return std::stol(line.substr(key.size()));
        }
    }
    return -1;
}

TEST_F(MqttConnection, WrongPasswordIsSaidOnceAndTriedAgain) {
    mqtt_test::Broker broker({.tls = false, .user = "hall", .password = "right"});
    configureBridge(broker.url(), "UserName = hall\nPassword = wr0ng\n");
    startBridge();
    ASSERT_TRUE(waitForLog("refused the user name or password"));
    appliance::pause(std::chrono::milliseconds(2500)); // the next attempt is after one second
    EXPECT_EQ(countInLog("refused the user name or password"), 1U) << "each attempt would fill the log";
    EXPECT_EQ(log().find("wr0ng"), std::string::npos);
    configureBridge(broker.url(), "UserName = hall\nPassword = right\n");
    EXPECT_TRUE(waitForLog("Connected to"));
}

TEST_F(MqttConnection, TlsChecksTheBrokersCertificate) {
    mqtt_test::Broker broker({.tls = true, .user = "hall", .password = "right"});
    const std::string login = "UserName = hall\nPassword = right\n";
    configureBridge(broker.url(), login);
    startBridge();
    ASSERT_TRUE(waitForLog("the broker's certificate is not accepted"))
        << "the system does not know this authority\n"
        << log();
    configureBridge(broker.url(), login + "CAFile = /nowhere/ca.pem\n");
    ASSERT_TRUE(waitForLog("/nowhere/ca.pem can't be read"));
    configureBridge(broker.url(), login + "CAFile = " + broker.certificateFile() + "\n");
    ASSERT_TRUE(waitForLog("Connected to mqtts://"));
    mqtt::LinkSettings settings = clientOf(broker);
    settings.user = "hall";
    settings.password = "right";
    settings.caFile = broker.certificateFile();
    mqtt_test::Listener listener(settings);
    EXPECT_TRUE(listener.waitForPayload(of("availability"), "online"));
    EXPECT_THAT(listener.command(topic, "select", "0")["text"].get<std::string>(),
                HasSubstr("no decoder is running"));
}

TEST_F(MqttConnection, CertificateOfAnotherHostIsRefused) {
    mqtt_test::Broker broker(
        {.tls = true, .user = "", .password = "", .names = "IP:127.0.0.9,DNS:other.example"});
    configureBridge(broker.url(), "CAFile = " + broker.certificateFile() + "\n");
    startBridge();
    EXPECT_TRUE(waitForLog("the broker's certificate is for another host")) << log();
    EXPECT_EQ(countInLog("Connected to"), 0U);
}

TEST_F(MqttConnection, ComesBackWhenTheBrokerDoes) {
    mqtt_test::Broker broker;
    configureBridge(broker.url());
    becomeTheDecoder();
    startBridge();
    ASSERT_TRUE(waitForLog("Connected to"));
    broker.stop();
    ASSERT_TRUE(waitForLog("it is tried again"));
    setConnectedInfo(true); // meanwhile
    appliance::pause(std::chrono::milliseconds(1500));
    broker.start();
    mqtt_test::Listener listener(broker.url());
    EXPECT_TRUE(listener.waitForPayload(of("availability"), "online"));
    EXPECT_TRUE(listener.waitForValue(of("state"), "connected", true));
    EXPECT_EQ(listener.count(of("event")), 0U) << "nothing of the time without a broker is sent later";
}

TEST_F(MqttConnection, StopsAtOnceWhileTheBrokerIsAway) {
    configureBridge("mqtt://127.0.0.1:" + std::to_string(peers::freePort()));
    startBridge();
    ASSERT_TRUE(waitForLog("it is tried again"));
    bridge->signal(SIGTERM);
    EXPECT_EQ(bridge->waitForEnd(appliance::Seconds(5)), 0);
}

TEST_F(MqttConnection, BrokerThatIsAwayCostsNothing) {
    configureBridge("mqtt://127.0.0.1:" + std::to_string(peers::freePort()));
    becomeTheDecoder();
    startBridge();
    ASSERT_TRUE(waitForLog("it is tried again"));
    const long memory = valueOf(bridge->pid(), "status", "VmRSS:");
    const long ticks = ticksOf(bridge->pid());
    const long before = valueOf(bridge->pid(), "status", "voluntary_ctxt_switches:");
    const std::time_t end = std::time(nullptr) + 8;
    for (int i = 0; std::time(nullptr) < end; ++i) {
        osdPrintf(0, 0, "%d", i); // changes that nobody can be told
        appliance::pause(std::chrono::milliseconds(20));
    }
    const long used = ticksOf(bridge->pid()) - ticks;
    const long grown = valueOf(bridge->pid(), "status", "VmRSS:") - memory;
    RecordProperty("ticks", static_cast<int>(used));
    std::cout << "in 8 s without a broker: " << used << " ticks, "
              << valueOf(bridge->pid(), "status", "voluntary_ctxt_switches:") - before << " wake-ups, "
              << grown << " KiB more of " << memory << "\n";
    EXPECT_LE(used, sysconf(_SC_CLK_TCK)) << "an eighth of a processor is far too much";
    EXPECT_LE(grown, 1024);
}

TEST_F(MqttConnection, SleepsWhileNothingHappens) {
    mqtt_test::Broker broker;
    configureBridge(broker.url());
    becomeTheDecoder();
    startBridge();
    mqtt_test::Listener listener(broker.url());
    ASSERT_TRUE(listener.waitForPayload(of("availability"), "online"));
    appliance::pause(std::chrono::milliseconds(500));
    const long before = valueOf(bridge->pid(), "status", "voluntary_ctxt_switches:");
    appliance::pause(std::chrono::seconds(4));
    const long wakeUps = valueOf(bridge->pid(), "status", "voluntary_ctxt_switches:") - before;
    std::cout << "wake-ups in 4 s: " << wakeUps << ", memory " << valueOf(bridge->pid(), "status", "VmRSS:")
              << " KiB\n";
    EXPECT_LE(wakeUps, 4);
}

TEST_F(MqttConnection, StoppedBrokerIsNoticedAndLosesNothingForGood) {
    mqtt_test::Broker broker;
    configureBridge(broker.url());
    becomeTheDecoder();
    startBridge();
    mqtt_test::Listener listener(broker.url());
    ASSERT_TRUE(listener.waitForPayload(of("availability"), "online"));
    broker.process().signal(SIGSTOP); // it accepts nothing, and answers nothing
    for (int i = 0; i < 300; ++i) {
        ParamWrapper(1, true)["Decoder.Info.CurrentSource"] = i % 3;
        appliance::pause(std::chrono::milliseconds(10));
    }
    ParamWrapper(1, true)["Decoder.Info.CurrentSource"] = 2;
    broker.process().signal(SIGCONT);
    EXPECT_TRUE(listener.waitFor([&] {
        const nlohmann::json source = listener.json(of("state"))["source"];
        return source.is_object() && source["index"] == 2;
    }));
}

} // namespace

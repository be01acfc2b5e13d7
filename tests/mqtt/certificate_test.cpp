// A broker that asks for certificates, and brokers whose certificates are not accepted: what decoder-mqtt says, and that it
// connects once the files are right.
#include "tests/mqtt/bridge_fixture.h"
#include "tests/support/certificate.h"

#include <sys/stat.h>

namespace {

using scripted::Certificate;
constexpr long day = 86400;

class MqttCertificates : public mqtt_test::Bridge {
protected:
    // Writes a certificate and its key below the appliance root.
    void write(const std::string& name, const Certificate& certificate) const {
        folder.write(name + ".pem", certificate.pem());
        folder.write(name + ".key", certificate.keyPem());
        chmod(folder.file(name + ".key").c_str(), 0600);
    }

    void start() {
        write("good", good);
        write("unknown", unknown);
        write("expired", expired);
        broker.emplace(mqtt_test::BrokerOptions{.tls = true,
                                                .user = "",
                                                .password = "",
                                                .names = "IP:127.0.0.1",
                                                .clients = good.pem() + expired.pem()});
        configureBridge(broker->url(), authority());
        startBridge();
    }

    std::string authority() const { return "CAFile = " + broker->certificateFile() + '\n'; }

    // The lines for these files, and waits for what the log then says. The configuration may be changed while
    // decoder-mqtt connects.
    bool says(const std::string& certificate, const std::string& key, const std::string& text) const {
        const std::size_t before = countInLog(text);
        configureBridge(broker->url(), authority() + "CertFile = " + folder.file(certificate) +
                                           "\nKeyFile = " + folder.file(key) + '\n');
        return waitForLog(text, before + 1);
    }

    const Certificate good{"DNS:hall"};
    const Certificate unknown{"DNS:hall"};
    const Certificate expired{"DNS:hall", -3 * day, -2 * day};
    peers::Folder folder;
    std::optional<mqtt_test::Broker> broker;
};

TEST_F(MqttCertificates, RightOneConnects) {
    start();
    ASSERT_TRUE(says("good.pem", "good.key", "Connected to mqtts://")) << log();
    mqtt::LinkSettings settings;
    mqtt::readBrokerUrl(broker->url(), settings.broker);
    settings.caFile = broker->certificateFile();
    settings.certFile = folder.file("good.pem");
    settings.keyFile = folder.file("good.key");
    mqtt_test::Listener listener(settings);
    EXPECT_TRUE(listener.waitForPayload(of("availability"), "online"));
}

TEST_F(MqttCertificates, MissingOneIsAskedFor) {
    start();
    EXPECT_TRUE(waitForLog("Mqtt.CertFile")) << log();
    EXPECT_EQ(countInLog("Connected to"), 0U);
    EXPECT_TRUE(says("good.pem", "good.key", "Connected to mqtts://")) << log();
}

TEST_F(MqttCertificates, WrongOneIsRefusedByTheBroker) {
    start();
    EXPECT_TRUE(says("unknown.pem", "unknown.key", "refused this decoder's certificate")) << log();
    EXPECT_EQ(countInLog("Connected to"), 0U);
    EXPECT_TRUE(says("good.pem", "good.key", "Connected to mqtts://")) << log();
}

TEST_F(MqttCertificates, ExpiredOneIsNamedWithItsDay) {
    start();
    EXPECT_TRUE(says("expired.pem", "expired.key", "; it has expired on 20")) << log();
    EXPECT_GE(countInLog("refused this decoder's certificate"), 1U);
    EXPECT_EQ(countInLog("Connected to"), 0U);
}

TEST_F(MqttCertificates, FilesThatCannotBeUsedAreNamedBeforeTheBrokerIsAsked) {
    start();
    EXPECT_TRUE(says("good.pem", "missing.key", "missing.key can't be read: No such file or directory"))
        << log();
    EXPECT_TRUE(says("good.pem", "unknown.key", "does not belong to the certificate")) << log();
    chmod(folder.file("good.key").c_str(), 0644);
    EXPECT_TRUE(says("good.pem", "good.key", "good.key is not used, because every user may use it")) << log();
    EXPECT_EQ(countInLog("Connected to"), 0U);
    chmod(folder.file("good.key").c_str(), 0600);
    EXPECT_TRUE(waitForLog("Connected to mqtts://")) << "the next attempt reads the files again\n" << log();
}

TEST_F(MqttCertificates, BrokersCertificateThatHasExpiredIsRefused) {
    mqtt_test::Broker old({.tls = true,
                           .user = "",
                           .password = "",
                           .names = "IP:127.0.0.1",
                           .clients = "",
                           .validUntil = -day});
    configureBridge(old.url(), "CAFile = " + old.certificateFile() + '\n');
    startBridge();
    EXPECT_TRUE(waitForLog("the broker's certificate is not accepted: it has expired")) << log();
    EXPECT_EQ(countInLog("Connected to"), 0U);
}

TEST_F(MqttCertificates, BrokerWithoutTlsIsNamed) {
    mqtt_test::Broker plain;
    configureBridge("mqtts://127.0.0.1:" + std::to_string(plain.port()));
    startBridge();
    EXPECT_TRUE(waitForLog("does it speak TLS on this port?")) << log();
    EXPECT_EQ(countInLog("Connected to"), 0U);
}

} // namespace

// Downloads over TLS: which certificates are trusted, and when download() switches to HTTPS.
#include "libcommon/src/download_fixture.h"
#include "tests/support/certificate.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <net/if.h>
#include <optional>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace scripted;

namespace {

const Script friendly = {readRequest(), send(reply("200 OK", "hello")), startOver()};
constexpr int certificateRefused = -60;

class DownloadTls : public DownloadTest {
protected:
    const Certificate certificate_;

    void trust(const Certificate& certificate) {
        setParameters("[Network.TLS]\nCAFile = " + fileWith(certificate.pem()) + "\n");
    }
    static void trustEverybody() { setParameters("[Network.TLS]\nVerify = no\n"); }
};

TEST_F(DownloadTls, AnUnknownCertificateIsRefusedAndLoggedWithHostAndReason) {
    const Server server(friendly, {.certificate = &certificate_});
    EXPECT_EQ(getHttps(server.port(), {}).result, certificateRefused);
    EXPECT_EQ(server.requests().size(), 0U);
    EXPECT_NE(log().find(" 3 The TLS certificate of 127.0.0.1 was refused: "), std::string::npos) << log();
    EXPECT_NE(log().find("self-signed"), std::string::npos) << log();
}

TEST_F(DownloadTls, TheCAFileMakesItTrusted) {
    trust(certificate_);
    const Server server(friendly, {.certificate = &certificate_});
    EXPECT_EQ(getHttps(server.port(), {.path = "/x y"}).body, "hello");
    EXPECT_EQ(firstLine(server.requests().at(0)), "GET /x y HTTP/1.1");
    EXPECT_EQ(log(), "");
}

TEST_F(DownloadTls, VerificationCanBeSwitchedOff) {
    trustEverybody();
    const Server server(friendly, {.certificate = &certificate_});
    EXPECT_EQ(getHttps(server.port(), {}).body, "hello");
}

TEST_F(DownloadTls, OnlyTheWordNoSwitchesItOff) {
    const Server server(friendly, {.certificate = &certificate_});
    for (const std::string value : {"yes", "", "0", "off", "NO", "none"}) {
        setParameters("[Network.TLS]\nVerify = " + value + "\n");
        EXPECT_EQ(getHttps(server.port(), {}).result, certificateRefused) << value;
    }
}

TEST_F(DownloadTls, ChangedParametersApplyFromTheNextRequestOn) {
    const Server server(friendly, {.certificate = &certificate_});
    trustEverybody();
    EXPECT_EQ(getHttps(server.port(), {}).body, "hello");
    setParameters("");
    EXPECT_EQ(getHttps(server.port(), {}).result, certificateRefused)
        << "a connection not verified was used again";
    trust(certificate_);
    EXPECT_EQ(getHttps(server.port(), {}).body, "hello");
}

TEST_F(DownloadTls, ACertificateForAnotherHostIsRefused) {
    const Certificate other("DNS:another.test");
    trust(other);
    const Server server(friendly, {.certificate = &other});
    EXPECT_EQ(getHttps(server.port(), {}).result, certificateRefused);
    EXPECT_NE(log().find("The TLS certificate of 127.0.0.1 was refused"), std::string::npos) << log();
}

TEST_F(DownloadTls, ACertificateForANameIsGoodForTheNameOnly) {
    const Certificate named("DNS:localhost");
    trust(named);
    const Server server(friendly, {.certificate = &named});
    EXPECT_EQ(getHttps(server.port(), {}, "localhost").body, "hello");
    EXPECT_EQ(getHttps(server.port(), {}, "127.0.0.1").result, certificateRefused);
}

TEST_F(DownloadTls, ACAFileThatCanNotBeReadRefusesEverybody) {
    const Server server(friendly, {.certificate = &certificate_});
    setParameters("[Network.TLS]\nCAFile = " + fileWith("no certificate") + "\n");
    EXPECT_TRUE(isTransportFailure(getHttps(server.port(), {}).result));
    setParameters("[Network.TLS]\nCAFile = /no/such/file\n");
    EXPECT_TRUE(isTransportFailure(getHttps(server.port(), {}).result));
    EXPECT_NE(log().find("The TLS certificate of 127.0.0.1 was refused"), std::string::npos) << log();
    EXPECT_EQ(server.requests().size(), 0U);
}

TEST_F(DownloadTls, AChangedCAFileAppliesFromTheNextConnectionOn) {
    const Certificate other;
    const std::string file = fileWith(other.pem());
    setParameters("[Network.TLS]\nCAFile = " + file + "\n");
    const Server server(friendly, {.certificate = &certificate_});
    EXPECT_EQ(getHttps(server.port(), {}).result, certificateRefused);
    std::ofstream(file) << certificate_.pem();
    EXPECT_EQ(getHttps(server.port(), {}).body, "hello");
}

TEST_F(DownloadTls, CredentialsAnswerAChallengeAndTheConnectionIsKept) {
    trust(certificate_);
    const Server server({readRequest(), send(reply("401 Who", "", "WWW-Authenticate: Basic realm=\"x\"\r\n")),
                         readRequest(), send(reply("200 OK", "hello")), startOver()},
                        {.certificate = &certificate_});
    const Asked root = {.user = "root", .password = "s3cret"};
    EXPECT_EQ(getHttps(server.port(), root).body, "hello");
    EXPECT_EQ(getHttps(server.port(), root).body, "hello");
    EXPECT_EQ(server.connections(), 1);
    EXPECT_NE(server.requests().at(1).find("Authorization: Basic cm9vdDpzM2NyZXQ="), std::string::npos);
    EXPECT_EQ(getHttps(server.port(), {}).result, -401);
}

TEST_F(DownloadTls, RefusalsFullBuffersAndSilenceAreAsOverHttp) {
    trust(certificate_);
    const Server refusing({readRequest(), send(reply("404 No", ""))}, {.certificate = &certificate_});
    EXPECT_EQ(getHttps(refusing.port(), {}).result, -404);
    const Server endless(
        {readRequest(), send("HTTP/1.1 200 OK\r\n\r\n"), sendEndlessly(std::string(10000, 'x'))},
        {.certificate = &certificate_});
    EXPECT_EQ(getHttps(endless.port(), {.size = 1}).body, "x");
    const Server silent({readRequest(), stall()}, {.certificate = &certificate_});
    EXPECT_EQ(getHttps(silent.port(), {.timeout = 1}).result, -28);
}

TEST_F(DownloadTls, APeerThatDoesNotSpeakTlsIsATransportFailure) {
    const Server plain({readSome(), send("HTTP/1.1 400 Bad Request\r\n\r\n"), close()});
    EXPECT_EQ(getHttps(plain.port(), {}).result, -35);
    const Server mute({stall()}); // takes the client's hello and says nothing
    const Got got = getHttps(mute.port(), {.timeout = 1});
    EXPECT_EQ(got.result, -28);
    EXPECT_LT(got.milliseconds, 3000);
}

// ---- download(): plain first, HTTPS where it helps. ----

TEST_F(DownloadTls, AnEncoderWithHttpsOnItsOwnPortIsReached) {
    trust(certificate_);
    const Server server(friendly, {.certificate = &certificate_});
    const Got got = get(server);
    EXPECT_EQ(got.body, "hello");
    EXPECT_EQ(got.mode, CONNECT_HTTPS);
    EXPECT_EQ(got.port, server.port());
    EXPECT_EQ(got.host, "127.0.0.1");
}

TEST_F(DownloadTls, ACertificateThatIsRefusedIsTheResult) {
    const Server server(friendly, {.certificate = &certificate_});
    const Got got = get(server);
    EXPECT_EQ(got.result, certificateRefused);
    EXPECT_EQ(got.mode, CONNECT_UNKNOWN);
    EXPECT_NE(log().find("The TLS certificate of 127.0.0.1 was refused"), std::string::npos) << log();
}

TEST_F(DownloadTls, WhateverTheTlsPortAnswersToPlainHttpTheHttpsAnswerCounts) {
    trust(certificate_);
    const std::vector<Script> answers = {
        {readRequest(),
         send("HTTP/1.1 400 Bad Request\r\nConnection: close\r\n\r\nplain HTTP to an HTTPS port"), close()},
        {readRequest(), send("\x15\x03\x01\x01\x02\x02\x46"), close()},
        {readRequest(), close()},
        {readRequest(), reset()},
        {close()}};
    for (const Script& plainAnswer : answers) {
        const Server server({plainAnswer, friendly}, {.certificate = &certificate_, .alsoPlain = true});
        const Got got = get(server);
        EXPECT_EQ(got.body, "hello");
        EXPECT_EQ(got.mode, CONNECT_HTTPS);
    }
}

TEST_F(DownloadTls, AnEncoderWithBothIsReachedPlainly) {
    const Server server(friendly, {.certificate = &certificate_, .alsoPlain = true});
    EXPECT_EQ(get(server).mode, CONNECT_HTTP);
    EXPECT_EQ(server.connections(), 1);
}

TEST_F(DownloadTls, A400IsTheResultWhenThereIsNoHttps) {
    const Server server({readRequest(), send(reply("400 Bad Request", "", "Connection: close\r\n"))});
    EXPECT_EQ(get(server).result, -400);
    EXPECT_EQ(server.connections(), 2);
}

TEST_F(DownloadTls, TheRefusalOverHttpsIsTheResult) {
    trust(certificate_);
    const Server server({{readRequest(), send(reply("400 Bad Request", "", "Connection: close\r\n"))},
                         {readRequest(), send(reply("401 Who", ""))}},
                        {.certificate = &certificate_, .alsoPlain = true});
    EXPECT_EQ(get(server).result, -401);
}

TEST_F(DownloadTls, AnyOtherHttpAnswerEndsTheSearch) {
    for (const std::string status : {"401 Who", "404 No", "500 Broken"}) {
        const Server server({readRequest(), send(reply(status, ""))});
        EXPECT_EQ(get(server).result, -std::stoi(status));
        EXPECT_EQ(server.connections(), 1);
    }
    const Server truncated({readRequest(), send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nx"), close()});
    EXPECT_EQ(get(truncated).result, -18);
    EXPECT_EQ(truncated.connections(), 1);
}

TEST_F(DownloadTls, ARefusedPortOfTheAddressIsNotTriedTwice) {
    const RefusedPort refused;
    const Got got = get("127.0.0.1:" + std::to_string(refused.port()), {});
    EXPECT_EQ(got.result, -7);
    EXPECT_EQ(log().find("https://"), std::string::npos) << log();
}

TEST_F(DownloadTls, TheTimeoutIsForBothAttemptsTogether) {
    // Garbage over HTTP after most of the time, silence over TLS.
    const Server server(
        {{readRequest(), sendSlowly("not http", std::chrono::milliseconds(100)), close()}, {stall()}});
    const Got got = get(server, {.timeout = 1});
    EXPECT_EQ(got.result, -28);
    EXPECT_GE(got.milliseconds, 990);
    EXPECT_LT(got.milliseconds, 3000);
    EXPECT_EQ(server.connections(), 2);
}

// ---- Addresses without a port: 80, then 443, in a network namespace of the test's own. ----

// Moves this process into a network namespace where loopback is up and every port is free. The reason when
// that is not allowed here.
std::optional<std::string> enterOwnNetwork() {
    if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
        return std::string("no network namespace can be made: ") + std::strerror(errno);
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq loopback = {};
    std::snprintf(loopback.ifr_name, sizeof loopback.ifr_name, "lo");
    loopback.ifr_flags = IFF_UP | IFF_RUNNING;
    const bool isUp = ioctl(fd, SIOCSIFFLAGS, &loopback) == 0;
    const std::string reason = std::string("loopback can't be brought up: ") + std::strerror(errno);
    ::close(fd);
    return isUp ? std::nullopt : std::optional(reason);
}

class DownloadWellKnownPorts : public DownloadTls {
protected:
    void SetUp() override {
        if (const auto reason = enterOwnNetwork())
            GTEST_SKIP() << *reason;
    }
};

TEST_F(DownloadWellKnownPorts, HttpIsOnPort80) {
    const Server server(friendly, {.port = 80});
    const Got got = get("127.0.0.1", {});
    EXPECT_EQ(got.body, "hello");
    EXPECT_EQ(got.mode, CONNECT_HTTP);
    EXPECT_EQ(got.port, 80);
    EXPECT_NE(server.requests().at(0).find("Host: 127.0.0.1\r\n"), std::string::npos);
}

TEST_F(DownloadWellKnownPorts, ARefusedPort80LeadsToPort443) {
    trust(certificate_);
    const Server server(friendly, {.port = 443, .certificate = &certificate_});
    const Got got = get("127.0.0.1", {});
    EXPECT_EQ(got.body, "hello");
    EXPECT_EQ(got.mode, CONNECT_HTTPS);
    EXPECT_EQ(got.port, 443);
}

TEST_F(DownloadWellKnownPorts, ASilentPort80LeadsToPort443AfterHalfOfTheTime) {
    trust(certificate_);
    const FullBacklog silent(80);
    const Server server(friendly, {.port = 443, .certificate = &certificate_});
    const Got got = get("127.0.0.1", {.timeout = 2});
    EXPECT_EQ(got.body, "hello");
    EXPECT_EQ(got.mode, CONNECT_HTTPS);
    EXPECT_GE(got.milliseconds, 990);
    EXPECT_LT(got.milliseconds, 2000);
}

TEST_F(DownloadWellKnownPorts, ADeadEncoderCostsTheTimeoutOnce) {
    const FullBacklog silent(80);
    const FullBacklog silentToo(443);
    const Got got = get("127.0.0.1", {.timeout = 2});
    EXPECT_EQ(got.result, -28);
    EXPECT_GE(got.milliseconds, 1990);
    EXPECT_LT(got.milliseconds, 4000);
}

TEST_F(DownloadWellKnownPorts, AMissingHostIsNoConnection) {
    EXPECT_EQ(get("127.0.0.1", {}).result, -7);
    EXPECT_EQ(get("192.0.2.1", {}).result, -7); // no route leaves this network
}

TEST_F(DownloadWellKnownPorts, A400OnPort80IsARefusal) {
    trust(certificate_);
    const Server plain({readRequest(), send(reply("400 Bad Request", ""))}, {.port = 80});
    const Server secure(friendly, {.port = 443, .certificate = &certificate_});
    EXPECT_EQ(get("127.0.0.1", {}).result, -400);
    EXPECT_EQ(secure.connections(), 0);
}

TEST_F(DownloadWellKnownPorts, GarbageOnPort80LeadsToPort443) {
    trust(certificate_);
    const Server garbage({readRequest(), send("garbage\r\n\r\n"), close()}, {.port = 80});
    const Server secure(friendly, {.port = 443, .certificate = &certificate_});
    EXPECT_EQ(get("127.0.0.1", {}).port, 443);
}

} // namespace

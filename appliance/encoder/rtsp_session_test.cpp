#include "appliance/encoder/rtsp_session.h"

#include "appliance/encoder/rtsp_test_client.h"
#include "appliance/encoder/test_client.h"

#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using testing::HasSubstr;

constexpr const char* path = rtspTestPath;
constexpr const char* everyKind = everyRtspKind;

// Two sockets of 127.0.0.1 on neighbouring ports, the first one even.
class PortPair {
public:
    PortPair() {
        for (std::uint16_t port = 30000; port < 40000; port += 2) {
            fds_ = {bound(port), bound(static_cast<std::uint16_t>(port + 1))};
            port_ = port;
            if (fds_[0] >= 0 && fds_[1] >= 0)
                return;
            closeAll();
        }
    }
    ~PortPair() { closeAll(); }
    PortPair(const PortPair&) = delete;
    PortPair& operator=(const PortPair&) = delete;

    std::string text() const { return std::to_string(port_) + "-" + std::to_string(port_ + 1); }
    // A packet on the first (0) or second (1) socket.
    std::string receive(std::size_t which, int milliseconds = 10000) const {
        pollfd poller{fds_[which], POLLIN, 0};
        std::array<char, 2048> buffer{};
        if (poll(&poller, 1, milliseconds) <= 0)
            return {};
        const ssize_t count = recv(fds_[which], buffer.data(), buffer.size(), 0);
        return count > 0 ? std::string(buffer.data(), static_cast<std::size_t>(count)) : std::string();
    }
    void drain() const {
        while (!receive(0, 0).empty() || !receive(1, 0).empty()) {
        }
    }

private:
    static int bound(std::uint16_t port) {
        const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0)
            return fd;
        close(fd);
        return -1;
    }
    void closeAll() {
        for (int& fd : fds_) {
            if (fd >= 0)
                close(fd);
            fd = -1;
        }
    }

    std::array<int, 2> fds_{-1, -1};
    std::uint16_t port_ = 0;
};

std::string basic(const std::string& pair) {
    return "Authorization: Basic " + base64Encoded(pair) + "\r\n";
}

std::string tunnelHead(const char* method) {
    return std::string(method) + " " + path + " HTTP/1.0\r\nx-sessioncookie: abc123\r\n" +
           (std::string(method) == "POST" ? "Content-Length: 32767\r\n\r\n" : "\r\n");
}

} // namespace

TEST(RtspSession, MediaPathsAreRead) {
    EXPECT_EQ(mediaPathOf("/mpeg4/3/media.orv")->channel, 3);
    EXPECT_EQ(mediaPathOf("/mpeg4/quad/media.orv")->channel, 0);
    EXPECT_EQ(mediaPathOf("/mpeg4/1/media.orv/trackID=1")->track, "trackID=1");
    EXPECT_EQ(mediaPathOf("/mpeg4/1/media.orv/")->track, "");
    for (const char* bad :
         {"", "/", "/mpeg4/", "/mpeg4/x/media.orv", "/mpeg4/1/media.orvx", "/mpeg4/1", "/other"})
        EXPECT_FALSE(mediaPathOf(bad).has_value()) << bad;
}

TEST(RtspSession, DescribesWithABarePathAndWithAWholeUrl) {
    const TestEncoder encoder({"--kinds", everyKind, "--inputs", "2"});
    RtspClient client(encoder.rtsp());
    for (const std::string& url :
         {std::string(path), "rtsp://127.0.0.1:" + std::to_string(encoder.rtsp()) + path,
          std::string("/mpeg4/2/media.orv"), std::string("/mpeg4/quad/media.orv")}) {
        ClientReply reply = client.ask("DESCRIBE", url, "Accept: application/sdp\r\n");
        EXPECT_EQ(reply.status, 200) << url;
        EXPECT_EQ(reply.headers["content-type"], "application/sdp");
        EXPECT_EQ(reply.headers["content-base"], url + "/");
        EXPECT_THAT(reply.body, HasSubstr("MP4V-ES/90000"));
        EXPECT_THAT(reply.body, HasSubstr("config=000001B0"));
        EXPECT_THAT(reply.body, HasSubstr("a=control:trackID=1\r\n"));
    }
    EXPECT_EQ(client.ask("DESCRIBE", "/mpeg4/3/media.orv").status, 404);
    EXPECT_EQ(client.ask("DESCRIBE", "/else").status, 404);
}

TEST(RtspSession, UnicastDeliversDataAndReportsAndEndsWithTeardown) {
    const TestEncoder encoder({"--kinds", everyKind});
    RtspClient client(encoder.rtsp());
    const PortPair ports;
    ClientReply reply = client.setUp("RTP/AVP;unicast;client_port=" + ports.text());
    ASSERT_EQ(reply.status, 200);
    EXPECT_THAT(
        reply.headers["transport"],
        testing::MatchesRegex("RTP/AVP;unicast;client_port=" + ports.text() + ";server_port=[0-9]+-[0-9]+"));
    EXPECT_THAT(reply.headers["session"], testing::MatchesRegex("[0-9]+;timeout=60"));
    EXPECT_EQ(client.ask("PLAY", path, client.session).status, 200);
    const std::string data = ports.receive(0);
    ASSERT_GT(data.size(), 12U);
    EXPECT_EQ(data[0], '\x80');
    EXPECT_EQ(data[1] & 0x7F, 96);
    EXPECT_EQ(data.substr(12, 4), std::string("\0\0\1\xB0", 4))
        << "a key picture with its headers comes first";
    const std::string report = ports.receive(1);
    ASSERT_GE(report.size(), 28U);
    EXPECT_EQ(report[1], '\xC8');
    EXPECT_EQ(report.substr(4, 4), data.substr(8, 4)) << "from the same sender";
    EXPECT_EQ(client.ask("TEARDOWN", path, client.session).status, 200);
    EXPECT_EQ(client.ask("PLAY", path, client.session).status, 454);
    // Nothing comes any more once the goodbye was sent.
    std::string last;
    while (!last.ends_with(data.substr(8, 4)) || last[1] != '\xC8')
        last = ports.receive(1);
    ports.drain();
    EXPECT_EQ(ports.receive(0, 200), "");
}

TEST(RtspSession, AStreamEndsWithItsConnection) {
    const TestEncoder encoder({"--kinds", everyKind});
    const PortPair ports;
    {
        RtspClient client(encoder.rtsp());
        ASSERT_EQ(client.setUp("RTP/AVP;unicast;client_port=" + ports.text()).status, 200);
        ASSERT_EQ(client.ask("PLAY", path, client.session).status, 200);
        ASSERT_NE(ports.receive(0), "");
    }
    std::string report;
    for (int i = 0; i < 1000 && (report.size() < 8 || report[report.size() - 7] != '\xCB'); ++i)
        report = ports.receive(1);
    EXPECT_EQ(report[report.size() - 7], '\xCB') << "a goodbye";
    ports.drain();
    EXPECT_EQ(ports.receive(0, 200), "");
}

TEST(RtspSession, InterleavedPacketsComeAfterTheAnswer) {
    const TestEncoder encoder({"--kinds", everyKind, "--codec", "h264"});
    RtspClient client(encoder.rtsp());
    EXPECT_EQ(client.setUp("RTP/AVP/TCP;unicast;interleaved=2-3").headers["transport"],
              "RTP/AVP/TCP;unicast;interleaved=2-3");
    ClientReply reply = client.ask("PLAY", path, client.session);
    EXPECT_EQ(reply.status, 200);
    EXPECT_THAT(reply.headers["rtp-info"],
                testing::StartsWith(std::string("url=") + path + "/trackID=1;seq="));
    bool data = false;
    bool report = false;
    int expected = std::stoi(reply.headers["rtp-info"].substr(reply.headers["rtp-info"].rfind('=') + 1));
    for (int i = 0; i < 50; ++i) {
        const auto packet = client.packet();
        ASSERT_TRUE(packet.has_value());
        data = data || packet->first == 2;
        report = report || packet->first == 3;
        if (packet->first == 2) {
            const int sequence = static_cast<std::uint8_t>(packet->second[2]) << 8 |
                                 static_cast<std::uint8_t>(packet->second[3]);
            EXPECT_EQ(sequence, expected & 0xFFFF);
            ++expected;
        }
    }
    EXPECT_TRUE(data);
    EXPECT_TRUE(report);
}

TEST(RtspSession, ReceiverReportsAmongRequestsAreTakenForNoRequests) {
    const TestEncoder encoder({"--kinds", everyKind});
    RtspClient client(encoder.rtsp());
    client.tcp.send(std::string("$\1\0\5", 4) + "junk\n" + std::string("$\1\0\0", 4));
    EXPECT_EQ(client.ask("OPTIONS", "*").status, 200);
    client.tcp.send(std::string("$\1\0\5jun", 7)); // cut anywhere
    client.tcp.send("k\n");
    EXPECT_EQ(client.ask("OPTIONS", "*").status, 200);
}

TEST(RtspSession, WhatIsSwitchedOffIsRefusedWith461) {
    const std::pair<const char*, const char*> cases[] = {
        {"rtsp-unicast", "RTP/AVP;multicast"},
        {"rtsp-unicast", "RTP/AVP/TCP;unicast;interleaved=0-1"},
        {"rtsp-tcp", "RTP/AVP;multicast"},
        {"rtsp-tcp", "RTP/AVP;unicast;client_port=5000-5001"},
        {"rtsp-multicast", "RTP/AVP;unicast;client_port=5000-5001"}};
    for (const auto& [kind, transport] : cases) {
        const TestEncoder encoder({"--kinds", kind});
        RtspClient client(encoder.rtsp());
        EXPECT_EQ(client.ask("DESCRIBE", path).status, 200);
        EXPECT_EQ(client.setUp(transport).status, 461) << kind << " " << transport;
    }
    EXPECT_EQ(TestEncoder({"--kinds", "rtsp-http"}).rtsp(), 0)
        << "RTSP over HTTP alone needs no port of its own";
}

TEST(RtspSession, AnAlternativeTransportIsTaken) {
    const TestEncoder encoder({"--kinds", "rtsp-tcp"});
    RtspClient client(encoder.rtsp());
    EXPECT_EQ(client.setUp("RTP/AVP;unicast;client_port=5000-5001, RTP/AVP/TCP;unicast;interleaved=0-1")
                  .headers["transport"],
              "RTP/AVP/TCP;unicast;interleaved=0-1");
}

TEST(RtspSession, MulticastNamesItsGroupAndPort) {
    const TestEncoder encoder({"--kinds", everyKind, "--multicast", "239.9.8.7", "--multicast-port", "7000"});
    RtspClient client(encoder.rtsp());
    ClientReply reply = client.setUp("RTP/AVP;multicast");
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.headers["transport"], "RTP/AVP;multicast;destination=239.9.8.7;port=7000-7001;ttl=1");
}

TEST(RtspSession, CredentialsAreBasicWhateverHttpAsksFor) {
    const TestEncoder encoder({"--kinds", everyKind, "--user", "joe", "--password", "pw", "--digest"});
    RtspClient client(encoder.rtsp());
    ClientReply reply = client.ask("DESCRIBE", path);
    EXPECT_EQ(reply.status, 401);
    EXPECT_THAT(reply.headers["www-authenticate"], HasSubstr("Basic realm="));
    EXPECT_EQ(client.ask("DESCRIBE", path, basic("joe:no")).status, 401);
    EXPECT_EQ(client.ask("DESCRIBE", path, basic("joe:pw")).status, 200) << "on the same connection";
    EXPECT_EQ(client.setUp("RTP/AVP/TCP;interleaved=0-1").status, 401);
    EXPECT_EQ(client.setUp("RTP/AVP/TCP;interleaved=0-1", basic("joe:pw")).status, 200);
    EXPECT_EQ(client.ask("PLAY", path, client.session).status, 401);
    EXPECT_EQ(client.ask("OPTIONS", "*").status, 200);
    EXPECT_THAT(get(encoder.http(), "/requests").body,
                HasSubstr("\"protocol\": \"rtsp\", \"connection\": 1, \"method\": \"DESCRIBE\", \"target\": "
                          "\"/mpeg4/1/media.orv\", \"user\": \"joe\", \"status\": 200"));
}

TEST(RtspSession, SessionsAndTracksAreChecked) {
    const TestEncoder encoder({"--kinds", everyKind});
    RtspClient client(encoder.rtsp());
    EXPECT_EQ(client.ask("PLAY", path).status, 454);
    EXPECT_EQ(client.ask("SETUP", std::string(path) + "/stream=0", "Transport: RTP/AVP/TCP\r\n").status, 404);
    EXPECT_EQ(client.ask("SETUP", path, "Transport: RTP/AVP/TCP\r\n").status, 200)
        << "the one track may be left out";
    EXPECT_EQ(client.setUp("RTP/AVP/TCP;interleaved=0-1").status, 200);
    EXPECT_EQ(client.ask("PLAY", path, "Session: 1\r\n").status, 454);
    EXPECT_EQ(client.ask("PAUSE", path, client.session).status, 501);
    EXPECT_EQ(client.ask("GET_PARAMETER", path).status, 200);
    EXPECT_EQ(client.ask("RECORD", path, client.session).status, 501);
    EXPECT_EQ(client.ask("TEARDOWN", path, client.session).status, 200);
    EXPECT_EQ(client.ask("TEARDOWN", path, client.session).status, 454);
}

TEST(RtspSession, TracksAndSessionIdsCanLookOtherwise) {
    const TestEncoder encoder({"--kinds", everyKind, "--track", "stream=0", "--session-ids", "text"});
    RtspClient client(encoder.rtsp());
    EXPECT_THAT(client.ask("DESCRIBE", path).body, HasSubstr("a=control:stream=0\r\n"));
    EXPECT_EQ(client.setUp("RTP/AVP/TCP;interleaved=0-1").status, 404);
    const ClientReply reply =
        client.ask("SETUP", std::string(path) + "/stream=0", "Transport: RTP/AVP/TCP\r\n");
    EXPECT_THAT(reply.headers.at("session"), testing::StartsWith("s-"));
}

TEST(RtspSession, ARangeIsAcceptedAndNotObeyed) {
    const TestEncoder encoder({"--kinds", everyKind});
    RtspClient client(encoder.rtsp());
    ASSERT_EQ(client.setUp("RTP/AVP/TCP;interleaved=0-1").status, 200);
    ClientReply reply = client.ask("PLAY", path, client.session + "Range: npt=0-\r\n");
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.headers["range"], "npt=now-");
    EXPECT_TRUE(client.packet().has_value());
}

TEST(RtspSession, IsTunnelledThroughHttp) {
    const TestEncoder encoder({"--kinds", "rtsp-http", "--user", "joe", "--password", "pw"});
    Client down(encoder.http());
    down.send(tunnelHead("GET"));
    EXPECT_EQ(down.readHead().headers["content-type"], "application/x-rtsp-tunnelled");
    Client up(encoder.http());
    up.send(tunnelHead("POST"));
    const auto ask = [&](const std::string& method, const std::string& url, const std::string& headers) {
        up.send(base64Encoded(method + " " + url + " RTSP/1.0\r\nCSeq: 1\r\n" + headers + "\r\n"));
        return down.readReply();
    };
    EXPECT_EQ(ask("DESCRIBE", path, {}).status, 401);
    EXPECT_EQ(ask("DESCRIBE", path, basic("joe:pw")).status, 200);
    EXPECT_EQ(ask("SETUP", std::string(path) + "/trackID=1",
                  basic("joe:pw") + "Transport: RTP/AVP;unicast;client_port=5000-5001\r\n")
                  .status,
              461)
        << "packets can only go through the tunnel";
    ClientReply reply = ask("SETUP", std::string(path) + "/trackID=1",
                            basic("joe:pw") + "Transport: RTP/AVP/TCP;interleaved=0-1\r\n");
    EXPECT_EQ(reply.status, 200);
    const std::string session = reply.headers["session"].substr(0, reply.headers["session"].find(';'));
    EXPECT_EQ(ask("PLAY", path, basic("joe:pw") + "Session: " + session + "\r\n").status, 200);
    EXPECT_EQ(down.readBytes(2).value_or(""), std::string("$\0", 2));
    // The same cookie cannot be used twice, and an unknown one leads nowhere.
    Client second(encoder.http());
    second.send(tunnelHead("GET"));
    EXPECT_EQ(second.readReply().status, 503);
    Client stray(encoder.http());
    stray.send("POST /mpeg4/1/media.orv HTTP/1.0\r\nx-sessioncookie: other\r\nContent-Length: 9\r\n\r\n");
    EXPECT_EQ(stray.readReply().status, 404);
}

TEST(RtspSession, MediaPathsAnswerAPlainGetOnlyWhereRtspGoesOverHttp) {
    const TestEncoder encoder({"--kinds", "rtsp-http", "--user", "joe", "--password", "pw"});
    EXPECT_EQ(get(encoder.http(), path).status, 401);
    const ClientReply reply = get(encoder.http(), path, basic("joe:pw"));
    EXPECT_EQ(reply.status, 200);
    EXPECT_THAT(reply.body, HasSubstr("m=video"));
    EXPECT_EQ(get(encoder.http(), "/mpeg4/7/media.orv", basic("joe:pw")).status, 404);
    const TestEncoder other({"--kinds", "rtsp-tcp"});
    EXPECT_EQ(get(other.http(), path).status, 404);
}

TEST(RtspSession, WhatIsNoRequestEndsTheConnection) {
    const TestEncoder encoder({"--kinds", everyKind});
    for (const std::string& bytes :
         {std::string("nonsense\r\n\r\n"), std::string("GET / HTTP/1.0\r\n\r\n"),
          "DESCRIBE / RTSP/1.0\r\n" + std::string(20000, 'x'),
          std::string("DESCRIBE / RTSP/1.0\r\nContent-Length: 99999999\r\n\r\n")}) {
        Client client(encoder.rtsp());
        client.send(bytes);
        const std::string answer = client.readToEnd();
        EXPECT_TRUE(answer.empty() || answer.starts_with("RTSP/1.0 400")) << answer;
    }
    EXPECT_EQ(RtspClient(encoder.rtsp()).ask("OPTIONS", "*").status, 200);
}

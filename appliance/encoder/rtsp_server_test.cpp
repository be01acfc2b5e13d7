#include "appliance/encoder/rtsp_server.h"

#include "appliance/encoder/rtsp_test_client.h"
#include "appliance/encoder/test_client.h"

#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

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
    // What was on its way still comes.
    void awaitSilence() const {
        const auto bound = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!receive(0, 300).empty())
            ASSERT_LT(std::chrono::steady_clock::now(), bound);
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

TEST(RtspServer, MediaPathsAreRead) {
    EXPECT_EQ(mediaChannelOf("/mpeg4/3/media.orv"), 3);
    EXPECT_EQ(mediaChannelOf("/mpeg4/quad/media.orv"), 0);
    EXPECT_EQ(mediaChannelOf("/mpeg4/1/media.orv/trackID=1"), 1);
    EXPECT_EQ(mediaChannelOf("/mpeg4/1/media.orv/"), 1);
    for (const char* bad :
         {"", "/", "/mpeg4/", "/mpeg4/x/media.orv", "/mpeg4/1/media.orvx", "/mpeg4/1", "/other"})
        EXPECT_FALSE(mediaChannelOf(bad).has_value()) << bad;
}

TEST(RtspServer, DescribesWithABarePathAndWithAWholeUrl) {
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
        EXPECT_THAT(reply.body, HasSubstr("config=000001b0"));
        EXPECT_THAT(reply.body, HasSubstr("a=control:trackID=1\r\n"));
    }
    EXPECT_EQ(client.ask("DESCRIBE", "/mpeg4/3/media.orv").status, 404);
    EXPECT_EQ(client.ask("DESCRIBE", "/else").status, 404);
}

TEST(RtspServer, UnicastDeliversDataAndReportsAndEndsWithTeardown) {
    const TestEncoder encoder({"--kinds", everyKind});
    RtspClient client(encoder.rtsp());
    const PortPair ports;
    ClientReply reply = client.setUp("RTP/AVP;unicast;client_port=" + ports.text());
    ASSERT_EQ(reply.status, 200);
    EXPECT_THAT(reply.headers["transport"],
                testing::MatchesRegex("RTP/AVP;unicast;client_port=" + ports.text() +
                                      ";server_port=[0-9]+-[0-9]+;.*"));
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
    ports.awaitSilence();
}

TEST(RtspServer, AStreamEndsWithItsConnection) {
    const TestEncoder encoder({"--kinds", everyKind});
    const PortPair ports;
    {
        RtspClient client(encoder.rtsp());
        ASSERT_EQ(client.setUp("RTP/AVP;unicast;client_port=" + ports.text()).status, 200);
        ASSERT_EQ(client.ask("PLAY", path, client.session).status, 200);
        ASSERT_NE(ports.receive(0), "");
    }
    ports.awaitSilence();
}

TEST(RtspServer, ASourceWithoutPicturesIsNotDescribed) {
    const TestEncoder encoder({"--kinds", everyKind, "--input", "http://127.0.0.1:1/nothing"});
    RtspClient client(encoder.rtsp());
    EXPECT_EQ(client.ask("DESCRIBE", path).status, 503);
    EXPECT_EQ(get(encoder.http(), path).status, 503);
}

TEST(RtspServer, InterleavedPacketsComeAfterTheAnswer) {
    const TestEncoder encoder({"--kinds", everyKind, "--codec", "h264"});
    RtspClient client(encoder.rtsp());
    EXPECT_THAT(client.setUp("RTP/AVP/TCP;unicast;interleaved=2-3").headers["transport"],
                testing::StartsWith("RTP/AVP/TCP;unicast;interleaved=2-3"));
    ASSERT_EQ(client.ask("PLAY", path, client.session).status, 200);
    bool data = false;
    bool report = false;
    std::optional<int> expected;
    for (int i = 0; i < 50; ++i) {
        const auto packet = client.packet();
        ASSERT_TRUE(packet.has_value());
        data = data || packet->first == 2;
        report = report || packet->first == 3;
        if (packet->first == 2) {
            const int sequence = static_cast<std::uint8_t>(packet->second[2]) << 8 |
                                 static_cast<std::uint8_t>(packet->second[3]);
            EXPECT_EQ(sequence, expected.value_or(sequence) & 0xFFFF);
            expected = sequence + 1;
        }
    }
    EXPECT_TRUE(data);
    EXPECT_TRUE(report);
}

TEST(RtspServer, ReceiverReportsAmongRequestsAreTakenForNoRequests) {
    const TestEncoder encoder({"--kinds", everyKind});
    RtspClient client(encoder.rtsp());
    client.tcp.send(std::string("$\1\0\5", 4) + "junk\n" + std::string("$\1\0\0", 4));
    EXPECT_EQ(client.ask("OPTIONS", "*").status, 200);
    client.tcp.send(std::string("$\1\0\5jun", 7)); // cut anywhere
    client.tcp.send("k\n");
    EXPECT_EQ(client.ask("OPTIONS", "*").status, 200);
}

TEST(RtspServer, WhatIsSwitchedOffIsRefusedWith461) {
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

TEST(RtspServer, AnAlternativeTransportIsTaken) {
    const TestEncoder encoder({"--kinds", "rtsp-tcp"});
    RtspClient client(encoder.rtsp());
    EXPECT_THAT(client.setUp("RTP/AVP;unicast;client_port=5000-5001, RTP/AVP/TCP;unicast;interleaved=0-1")
                    .headers["transport"],
                testing::StartsWith("RTP/AVP/TCP;unicast;interleaved=0-1"));
}

TEST(RtspServer, CredentialsAreBasicWhateverHttpAsksFor) {
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

TEST(RtspServer, SessionsAndTracksAreChecked) {
    const TestEncoder encoder({"--kinds", everyKind});
    RtspClient client(encoder.rtsp());
    EXPECT_EQ(client.ask("PLAY", path).status, 454);
    EXPECT_EQ(client.ask("SETUP", std::string(path) + "/stream=0", "Transport: RTP/AVP/TCP\r\n").status, 404);
    EXPECT_EQ(client.ask("SETUP", path, "Transport: RTP/AVP/TCP\r\n").status, 200)
        << "the one track may be left out";
    EXPECT_EQ(client.setUp("RTP/AVP/TCP;interleaved=0-1").status, 200);
    EXPECT_EQ(client.ask("PLAY", path, "Session: 1\r\n").status, 454);
    EXPECT_EQ(client.ask("GET_PARAMETER", path).status, 200);
    EXPECT_EQ(client.ask("TEARDOWN", path, client.session).status, 200);
    EXPECT_EQ(client.ask("TEARDOWN", path, client.session).status, 454);
}

TEST(RtspServer, TracksAndSessionIdsCanLookOtherwise) {
    const TestEncoder encoder({"--kinds", everyKind, "--track", "stream=0", "--session-ids", "text"});
    RtspClient client(encoder.rtsp());
    EXPECT_THAT(client.ask("DESCRIBE", path).body, HasSubstr("a=control:stream=0\r\n"));
    EXPECT_EQ(client.setUp("RTP/AVP/TCP;interleaved=0-1").status, 404);
    const ClientReply reply =
        client.ask("SETUP", std::string(path) + "/stream=0", "Transport: RTP/AVP/TCP\r\n");
    EXPECT_THAT(reply.headers.at("session"), testing::Not(testing::MatchesRegex("[0-9]+;.*")));
}

TEST(RtspServer, ARangeIsAcceptedAndNotObeyed) {
    const TestEncoder encoder({"--kinds", everyKind});
    RtspClient client(encoder.rtsp());
    ASSERT_EQ(client.setUp("RTP/AVP/TCP;interleaved=0-1").status, 200);
    ClientReply reply = client.ask("PLAY", path, client.session + "Range: npt=0-\r\n");
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.headers["range"], "npt=now-");
    EXPECT_TRUE(client.packet().has_value());
}

TEST(RtspServer, IsTunnelledThroughHttp) {
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
    EXPECT_EQ(down.readBytes(1).value_or(""), "$");
}

TEST(RtspServer, ATunnelToACameraThatIsNotThereIsRefused) {
    const TestEncoder encoder({"--kinds", "rtsp-http", "--inputs", "2"});
    Client client(encoder.http());
    client.send("GET /mpeg4/3/media.orv HTTP/1.0\r\nx-sessioncookie: abc\r\n\r\n");
    EXPECT_EQ(client.readReply().status, 404);
}

TEST(RtspServer, ManyWatchOneStreamAndNobodyDisturbsAnother) {
    const TestEncoder encoder({"--kinds", everyKind});
    RtspClient first(encoder.rtsp());
    ASSERT_EQ(first.setUp("RTP/AVP/TCP;interleaved=0-1").status, 200);
    ASSERT_EQ(first.ask("PLAY", path, first.session).status, 200);
    std::vector<std::unique_ptr<RtspClient>> others;
    for (int i = 0; i < 8; ++i) {
        others.push_back(std::make_unique<RtspClient>(encoder.rtsp()));
        RtspClient& client = *others.back();
        ASSERT_EQ(client.setUp("RTP/AVP/TCP;interleaved=0-1").status, 200);
        ASSERT_EQ(client.ask("PLAY", path, client.session + "Range: npt=5-\r\n").status, 200);
        ASSERT_TRUE(client.packet().has_value());
    }
    others.clear(); // without a goodbye
    std::optional<int> expected;
    for (int i = 0; i < 100; ++i) {
        const auto packet = first.packet();
        ASSERT_TRUE(packet.has_value());
        if (packet->first != 0)
            continue;
        const int sequence =
            static_cast<std::uint8_t>(packet->second[2]) << 8 | static_cast<std::uint8_t>(packet->second[3]);
        EXPECT_EQ(sequence, expected.value_or(sequence) & 0xFFFF);
        expected = sequence + 1;
    }
}

TEST(RtspServer, AClientThatReadsNothingHoldsUpNobody) {
    const TestEncoder encoder({"--kinds", everyKind, "--width", "640", "--height", "480", "--fps", "60"});
    RtspClient idle(encoder.rtsp(), 4096);
    ASSERT_EQ(idle.setUp("RTP/AVP/TCP;interleaved=0-1").status, 200);
    ASSERT_EQ(idle.ask("PLAY", path, idle.session).status, 200);
    RtspClient client(encoder.rtsp());
    ASSERT_EQ(client.setUp("RTP/AVP/TCP;interleaved=0-1").status, 200);
    ASSERT_EQ(client.ask("PLAY", path, client.session).status, 200);
    for (int pictures = 0; pictures < 180;) { // three seconds
        const auto packet = client.packet();
        ASSERT_TRUE(packet.has_value());
        pictures += packet->first == 0 && (packet->second[1] & 0x80) != 0 ? 1 : 0;
    }
}

TEST(RtspServer, ANewcomerGetsAKeyPictureSoon) {
    const TestEncoder encoder({"--kinds", everyKind, "--gop", "250", "--fps", "10"});
    RtspClient first(encoder.rtsp());
    ASSERT_EQ(first.setUp("RTP/AVP/TCP;interleaved=0-1").status, 200);
    ASSERT_EQ(first.ask("PLAY", path, first.session).status, 200);
    ASSERT_TRUE(first.packet().has_value());
    RtspClient second(encoder.rtsp());
    ASSERT_EQ(second.setUp("RTP/AVP/TCP;interleaved=0-1").status, 200);
    ASSERT_EQ(second.ask("PLAY", path, second.session).status, 200);
    int pictures = 0;
    bool key = false;
    while (!key && pictures < 50) {
        const auto packet = second.packet();
        ASSERT_TRUE(packet.has_value());
        if (packet->first != 0)
            continue;
        pictures += (packet->second[1] & 0x80) != 0 ? 1 : 0;
        key = packet->second.substr(12, 4) == std::string("\0\0\1\xB0", 4);
    }
    EXPECT_TRUE(key) << "in its turn it would come with picture 250";
}

TEST(RtspServer, MediaPathsAnswerAPlainGetOnlyWhereRtspGoesOverHttp) {
    const TestEncoder encoder({"--kinds", "rtsp-http", "--user", "joe", "--password", "pw"});
    EXPECT_EQ(get(encoder.http(), path).status, 401);
    const ClientReply reply = get(encoder.http(), path, basic("joe:pw"));
    EXPECT_EQ(reply.status, 200);
    EXPECT_THAT(reply.body, HasSubstr("m=video"));
    EXPECT_EQ(get(encoder.http(), "/mpeg4/7/media.orv", basic("joe:pw")).status, 404);
    const TestEncoder other({"--kinds", "rtsp-tcp"});
    EXPECT_EQ(get(other.http(), path).status, 404);
}

TEST(RtspServer, WhatIsNoRequestHarmsNobody) {
    const TestEncoder encoder({"--kinds", everyKind});
    std::vector<std::unique_ptr<Client>> clients;
    for (const std::string& bytes :
         {std::string("nonsense\r\n\r\n"), std::string("DESCRIBE * RTSP/1.0\r\nCSeq: 1\r\n\r\n"),
          "DESCRIBE / RTSP/1.0\r\n" + std::string(20000, 'x'),
          std::string("DESCRIBE / RTSP/1.0\r\nContent-Length: 99999999\r\n\r\n"),
          std::string("SETUP /mpeg4/1/media.orv RTSP/1.0\r\nTransport: \r\nTransport: x;y=z\r\n\r\n")}) {
        clients.push_back(std::make_unique<Client>(encoder.rtsp()));
        clients.back()->send(bytes);
    }
    EXPECT_EQ(RtspClient(encoder.rtsp()).ask("OPTIONS", "*").status, 200);
}

TEST(RtspServer, TunnelsAreNotForTheRtspPort) {
    const TestEncoder encoder({"--kinds", everyKind});
    for (const char* method : {"GET", "POST"}) {
        Client client(encoder.rtsp());
        client.send(tunnelHead(method));
        EXPECT_EQ(client.readToEnd(), "");
    }
}

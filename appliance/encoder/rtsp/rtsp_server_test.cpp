#include "appliance/encoder/rtsp/rtsp_server.h"

#include "appliance/encoder/testing/rtsp_test_client.h"
#include "appliance/encoder/testing/test_client.h"
#include "appliance/encoder/testing/udp_receiver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace {

constexpr const char* path = rtspTestPath;
constexpr const char* everyKind = everyRtspKind;

} // namespace

TEST(RtspServer, UnicastSendsDataAndReportsUntilTeardown) {
    const TestEncoder encoder({"--kinds", everyKind});
    RtspClient client(encoder.rtsp());
    const UdpPortPair ports;
    ClientReply reply = client.setUp("RTP/AVP;unicast;client_port=" + ports.text());
    ASSERT_EQ(reply.status, 200);
    EXPECT_THAT(reply.headers["transport"],
                testing::MatchesRegex("RTP/AVP;unicast;client_port=" + ports.text() +
                                      ";server_port=[0-9]+-[0-9]+;.*"));
    EXPECT_THAT(reply.headers["session"], testing::MatchesRegex("[0-9]+;timeout=60"));
    EXPECT_EQ(client.ask("PLAY", path, client.session).status, 200);
    const std::string data = ports.data().receive();
    ASSERT_GT(data.size(), 12U);
    EXPECT_EQ(data[0], '\x80');
    EXPECT_EQ(data[1] & 0x7F, 96);
    EXPECT_EQ(data.substr(12, 4), std::string("\0\0\1\xB0", 4))
        << "a key picture with its headers comes first";
    const std::string report = ports.control().receive();
    ASSERT_GE(report.size(), 28U);
    EXPECT_EQ(report[1], '\xC8');
    EXPECT_EQ(report.substr(4, 4), data.substr(8, 4)) << "from the same sender";
    EXPECT_EQ(client.ask("TEARDOWN", path, client.session).status, 200);
    EXPECT_EQ(client.ask("PLAY", path, client.session).status, 454);
    EXPECT_TRUE(ports.data().fallsSilent());
}

TEST(RtspServer, AStreamEndsWithItsConnection) {
    const TestEncoder encoder({"--kinds", everyKind});
    const UdpPortPair ports;
    {
        RtspClient client(encoder.rtsp());
        ASSERT_EQ(client.setUp("RTP/AVP;unicast;client_port=" + ports.text()).status, 200);
        ASSERT_EQ(client.ask("PLAY", path, client.session).status, 200);
        ASSERT_NE(ports.data().receive(), "");
    }
    EXPECT_TRUE(ports.data().fallsSilent());
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

TEST(RtspServer, ClientsThatComeAndGoDoNotDisturbOthers) {
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
    others.clear(); // without TEARDOWN
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

TEST(RtspServer, AClientThatReadsNothingDelaysNoOther) {
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

TEST(RtspServer, ANewClientGetsAKeyPictureSoon) {
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
    EXPECT_TRUE(key) << "the next regular key picture is number 250";
}

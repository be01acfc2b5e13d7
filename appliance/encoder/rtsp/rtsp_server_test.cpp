#include "appliance/encoder/rtsp/rtsp_server.h"

#include "appliance/encoder/testing/rtsp_test_client.h"
#include "appliance/encoder/testing/test_client.h"
#include "appliance/encoder/testing/udp_receiver.h"

#include <atomic>
#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <thread>
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

namespace {

// How many pictures a client gets before its first MPEG-4 key picture; nothing: none of 50 is one.
std::optional<int> picturesBeforeKey(RtspClient& client) {
    for (int pictures = 0; pictures < 50;) {
        const auto packet = client.packet();
        if (!packet)
            return std::nullopt;
        if (packet->first != 0)
            continue;
        if (packet->second.substr(12, 4) == std::string("\0\0\1\xB0", 4))
            return pictures;
        pictures += (packet->second[1] & 0x80) != 0 ? 1 : 0;
    }
    return std::nullopt;
}

void play(RtspClient& client) {
    ASSERT_EQ(client.ask("DESCRIBE", path).status, 200);
    ASSERT_EQ(client.setUp("RTP/AVP/TCP;interleaved=0-1").status, 200);
    ASSERT_EQ(client.ask("PLAY", path, client.session).status, 200);
}

// Begins `delay` after the call.
std::thread newcomer(RtspClient& client, std::chrono::milliseconds delay, std::optional<int>& pictures) {
    return std::thread([&client, delay, &pictures] {
        std::this_thread::sleep_for(delay);
        play(client);
        pictures = picturesBeforeKey(client);
    });
}

// Two clients that begin within a few milliseconds of each other, several times.
void expectAKeyPictureForEachOfTwo(const TestEncoder& encoder) {
    for (int round = 0; round < 10; ++round) {
        RtspClient first(encoder.rtsp());
        RtspClient second(encoder.rtsp());
        std::optional<int> forFirst;
        std::optional<int> forSecond;
        std::thread firstThread = newcomer(first, std::chrono::milliseconds(0), forFirst);
        std::thread secondThread = newcomer(second, std::chrono::milliseconds(2 * round), forSecond);
        firstThread.join();
        secondThread.join();
        EXPECT_LT(forFirst.value_or(50), 20) << "round " << round;
        EXPECT_LT(forSecond.value_or(50), 20) << "round " << round;
    }
}

} // namespace

TEST(RtspServer, ANewClientGetsAKeyPictureSoon) {
    const TestEncoder encoder({"--kinds", everyKind, "--gop", "250", "--fps", "10"});
    RtspClient first(encoder.rtsp());
    play(first);
    ASSERT_TRUE(first.packet().has_value());
    RtspClient second(encoder.rtsp());
    play(second);
    EXPECT_TRUE(picturesBeforeKey(second)) << "the next regular key picture is number 250";
}

TEST(RtspServer, EachOfTwoNewClientsGetsAKeyPictureSoon) {
    const TestEncoder encoder({"--kinds", everyKind, "--gop", "250", "--fps", "10"});
    expectAKeyPictureForEachOfTwo(encoder);
}

TEST(RtspServer, EachOfTwoNewClientsGetsAKeyPictureSoonBesideAThird) {
    const TestEncoder encoder({"--kinds", everyKind, "--gop", "250", "--fps", "10"});
    RtspClient watcher(encoder.rtsp());
    play(watcher);
    std::atomic<bool> over{false};
    std::thread watching([&] {
        while (!over && watcher.packet()) {
        }
    });
    expectAKeyPictureForEachOfTwo(encoder);
    over = true;
    watching.join();
}

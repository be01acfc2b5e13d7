// Multicasts, of RTSP and of the SDP guide. Each test makes its own network namespace, and is skipped if it cannot.
#include "appliance/encoder/testing/test_client.h"
#include "appliance/encoder/testing/udp_receiver.h"
#include "tests/fakes/network_namespace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace {

std::string sessionOf(ClientReply reply) {
    const std::string id = reply.headers["session"];
    return "Session: " + id.substr(0, id.find(';')) + "\r\n";
}

ClientReply ask(Client& client, const std::string& request, const std::string& headers = {}) {
    client.send(request + " RTSP/1.0\r\nCSeq: 1\r\n" + headers + "\r\n");
    return client.readReply();
}

class Multicast : public testing::Test {
protected:
    void SetUp() override {
        if (const std::string reason = enterNetworkNamespace(); !reason.empty())
            GTEST_SKIP() << reason;
    }
};

} // namespace

TEST_F(Multicast, RtspSendsToTheGroupWhileAClientPlays) {
    const TestEncoder encoder({"--kinds", "rtsp-multicast", "--inputs", "2"});
    const UdpReceiver data(5000, "239.255.77.2");
    const UdpReceiver control(5001, "239.255.77.2");
    EXPECT_EQ(data.receive(300), "") << "no client plays yet";
    Client client(encoder.rtsp());
    ClientReply reply = ask(client, "SETUP /mpeg4/2/media.orv/trackID=1", "Transport: RTP/AVP;multicast\r\n");
    ASSERT_EQ(reply.status, 200);
    EXPECT_THAT(reply.headers["transport"], testing::AllOf(testing::HasSubstr("destination=239.255.77.2;"),
                                                           testing::HasSubstr("ttl=1;port=5000-5001")));
    const std::string session = sessionOf(reply);
    ASSERT_EQ(ask(client, "PLAY /mpeg4/2/media.orv", session).status, 200);
    const std::string packet = data.receive();
    ASSERT_GT(packet.size(), 12U);
    EXPECT_EQ(packet[1] & 0x7F, 96);
    const std::string report = control.receive();
    ASSERT_GE(report.size(), 28U);
    EXPECT_EQ(report[1], '\xC8');

    // A second client shares the stream. The stream continues when the first client leaves.
    Client second(encoder.rtsp());
    reply = ask(second, "SETUP /mpeg4/2/media.orv/trackID=1", "Transport: RTP/AVP;multicast\r\n");
    const std::string secondSession = sessionOf(reply);
    ASSERT_EQ(ask(second, "PLAY /mpeg4/2/media.orv", secondSession).status, 200);
    ASSERT_EQ(ask(client, "TEARDOWN /mpeg4/2/media.orv", session).status, 200);
    for (int i = 0; i < 50; ++i)
        EXPECT_EQ(data.receive().substr(8, 4), packet.substr(8, 4)) << "one sender for both";
    ASSERT_EQ(ask(second, "TEARDOWN /mpeg4/2/media.orv", secondSession).status, 200);
    EXPECT_TRUE(data.fallsSilent());
}

// The players of a decoder on this machine use ports from 20000 up.
TEST_F(Multicast, OccupiedPortsDoNotMatter) {
    std::vector<std::unique_ptr<UdpReceiver>> others;
    for (const int first : {20000, 42000}) {
        for (int i = 0; i < 300; ++i)
            others.push_back(
                std::make_unique<UdpReceiver>(static_cast<std::uint16_t>(first + 2 * i), "239.255.76.1"));
    }
    const TestEncoder encoder({"--kinds", "rtsp-multicast"});
    const UdpReceiver data(5000, "239.255.77.1");
    for (int round = 0; round < 3; ++round) {
        Client client(encoder.rtsp());
        ClientReply reply =
            ask(client, "SETUP /mpeg4/1/media.orv/trackID=1", "Transport: RTP/AVP;multicast\r\n");
        ASSERT_EQ(reply.status, 200);
        const std::string session = sessionOf(reply);
        ASSERT_EQ(ask(client, "PLAY /mpeg4/1/media.orv", session).status, 200);
        EXPECT_FALSE(data.receive().empty());
        ASSERT_EQ(ask(client, "TEARDOWN /mpeg4/1/media.orv", session).status, 200);
    }
}

TEST_F(Multicast, TheGuidesStreamIsAlwaysSentWithAndWithoutSound) {
    for (const bool sound : {true, false}) {
        std::vector<std::string> words{"--kinds",          "sdp", "--multicast", "239.255.78.1",
                                       "--multicast-port", "6000"};
        if (sound)
            words.emplace_back("--audio");
        const TestEncoder encoder(words);
        const ClientReply guide = get(encoder.http(), "/view/sdp/guide.sdp");
        EXPECT_THAT(guide.body, testing::HasSubstr("m=video 6010 RTP/AVP 32\r\nc=IN IP4 239.255.78.1/1\r\n"));
        EXPECT_EQ(guide.body.find("m=audio 6020 RTP/AVP 14\r\nc=IN IP4 239.255.78.1/1\r\n") !=
                      std::string::npos,
                  sound);
        const UdpReceiver video(6010, "239.255.78.1");
        const std::string packet = video.receive();
        ASSERT_GT(packet.size(), 16U);
        EXPECT_EQ(packet[1] & 0x7F, 32);
        const UdpReceiver audio(6020, "239.255.78.1");
        if (sound) {
            const std::string heard = audio.receive();
            ASSERT_GT(heard.size(), 16U);
            EXPECT_EQ(heard[1] & 0x7F, 14);
            EXPECT_EQ(static_cast<std::uint8_t>(heard[16]), 0xFF) << "a frame of MPEG audio";
        } else {
            EXPECT_EQ(audio.receive(300), "");
        }
    }
}

#include "appliance/encoder/faults/faults.h"
#include "appliance/encoder/testing/rtsp_test_client.h"
#include "appliance/encoder/testing/test_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::HasSubstr;

constexpr const char* path = rtspTestPath;
constexpr const char* everyKind = everyRtspKind;

} // namespace

TEST(RtspFaults, AnswersAreWrongInEveryWay) {
    TestEncoder encoder({"--kinds", everyKind});
    const auto answer = [&](const std::string& fault) {
        encoder.setFaults(fault);
        Client client(encoder.rtsp());
        client.send(std::string("SETUP ") + path +
                    "/trackID=1 RTSP/1.0\r\nCSeq: 5\r\nTransport: RTP/AVP/TCP\r\n\r\n");
        const std::optional<std::string> head = client.readUntil("\r\n\r\n");
        return head ? *head : client.readToEnd();
    };
    EXPECT_THAT(answer(""), testing::AllOf(HasSubstr("CSeq: 5\r\n"), HasSubstr("Session: ")));
    EXPECT_THAT(answer("wrong-cseq"), HasSubstr("CSeq: 1005\r\n"));
    EXPECT_THAT(answer("no-session"), testing::Not(HasSubstr("Session: ")));
    EXPECT_EQ(answer("truncated=12"), "RTSP/1.0 200");
    EXPECT_THAT(answer("early-data"), testing::StartsWith("$"));
    EXPECT_THAT(answer("404"), HasSubstr("RTSP/1.0 404"));
    EXPECT_THAT(answer("401"), HasSubstr("RTSP/1.0 401"));
    EXPECT_THAT(answer("huge"),
                HasSubstr("RTSP/1.0 200 OK\r\nContent-Type: text/plain\r\nContent-Length: 100000000"));
    EXPECT_THAT(answer("garbage"), testing::Not(HasSubstr("RTSP/1.0")));
}

TEST(RtspFaults, SilentNeverAnswers) {
    const TestEncoder encoder({"--kinds", everyKind, "--fault", "silent"});
    Client client(encoder.rtsp());
    client.send("OPTIONS * RTSP/1.0\r\nCSeq: 1\r\n\r\n");
    EXPECT_TRUE(client.silentFor(300));
}

TEST(RtspFaults, ConnectionsAreCutOffAfterTheirAnswers) {
    const TestEncoder encoder({"--kinds", everyKind, "--fault", "close-after=2"});
    RtspClient client(encoder.rtsp());
    EXPECT_EQ(client.ask("OPTIONS", "*").status, 200);
    EXPECT_EQ(client.ask("OPTIONS", "*").status, 200);
    EXPECT_EQ(client.tcp.readToEnd(), "");
}

TEST(RtspFaults, PacketsOrReportsAreLeftOut) {
    for (const bool data : {false, true}) {
        const TestEncoder encoder({"--kinds", everyKind, "--fault", data ? "no-rtcp" : "no-rtp"});
        RtspClient client(encoder.rtsp());
        ASSERT_EQ(client.setUp("RTP/AVP/TCP;interleaved=0-1").status, 200);
        ASSERT_EQ(client.ask("PLAY", path, client.session).status, 200);
        for (int i = 0; i < 10; ++i)
            EXPECT_EQ(client.packet().value().first, data ? 0 : 1);
    }
}

TEST(RtspFaults, StreamsStallAndAreCutOff) {
    TestEncoder encoder({"--kinds", everyKind, "--fault", "stall=2"});
    const auto play = [&](RtspClient& client) {
        EXPECT_EQ(client.setUp("RTP/AVP/TCP;interleaved=0-1").status, 200);
        EXPECT_EQ(client.ask("PLAY", path, client.session).status, 200);
    };
    RtspClient stalled(encoder.rtsp());
    play(stalled);
    int pictures = 0;
    while (pictures < 2) {
        const auto packet = stalled.packet();
        ASSERT_TRUE(packet.has_value());
        if (packet->first == 0 && (packet->second[1] & 0x80) != 0)
            ++pictures;
    }
    while (!stalled.tcp.silentFor(300))
        ASSERT_EQ(stalled.packet().value().first, 1) << "only the last picture's report may follow";
    encoder.setFaults("close=1");
    RtspClient broken(encoder.rtsp());
    play(broken);
    bool reset = false;
    broken.tcp.readToEnd(&reset);
    EXPECT_TRUE(reset);
}

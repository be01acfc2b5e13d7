#include "appliance/streams/rtsp_message.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace streams {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct Taken {
    std::vector<RtspMessage> messages;
    std::vector<std::string> packets; // "channel:bytes"
    bool good = true;
};

Taken take(const std::string& bytes, std::size_t piece = 1 << 20) {
    Taken taken;
    RtspReader reader(
        {.message = [&](RtspMessage&& message) { taken.messages.push_back(std::move(message)); },
         .packet =
             [&](int channel, std::string_view packet) {
                 taken.packets.push_back(std::to_string(channel) + ":" + std::string(packet));
             }});
    for (std::size_t at = 0; at < bytes.size(); at += piece)
        taken.good = reader.feed(bytes.data() + at, std::min(piece, bytes.size() - at));
    return taken;
}

std::string packet(int channel, const std::string& bytes) {
    return std::string("$") + static_cast<char>(channel) + static_cast<char>(bytes.size() >> 8) +
           static_cast<char>(bytes.size() & 255) + bytes;
}

TEST(RtspReader, ResponsesAndPacketsAreSeparatedInAnyPieces) {
    const std::string bytes =
        packet(0, "one") +
        "RTSP/1.0 200 OK\r\nCSeq: 7\r\nsession:  12;timeout=60 \r\nContent-Length: 4\r\n\r\nbody" +
        packet(1, std::string(300, 'x')) + "RTSP/1.0 404 Not Found\r\nCSeq: 8\r\n\r\n" + packet(200, "");
    for (const std::size_t piece : {std::size_t{1}, std::size_t{3}, std::size_t{1} << 20}) {
        const Taken taken = take(bytes, piece);
        EXPECT_TRUE(taken.good);
        EXPECT_THAT(taken.packets, ElementsAre("0:one", "1:" + std::string(300, 'x'), "200:"));
        ASSERT_EQ(taken.messages.size(), 2U);
        EXPECT_EQ(taken.messages[0].status, 200);
        EXPECT_EQ(taken.messages[0].sequence(), 7);
        EXPECT_EQ(taken.messages[0].header("Session"), "12;timeout=60");
        EXPECT_EQ(taken.messages[0].header("nothing"), "");
        EXPECT_EQ(taken.messages[0].body, "body");
        EXPECT_EQ(taken.messages[1].status, 404);
    }
}

TEST(RtspReader, RequestsOfTheServerAreNotResponses) {
    const Taken taken = take("OPTIONS * RTSP/1.0\r\nCSeq: 1\r\n\r\n");
    ASSERT_EQ(taken.messages.size(), 1U);
    EXPECT_EQ(taken.messages[0].status, 0);
    EXPECT_EQ(taken.messages[0].method, "OPTIONS");
}

TEST(RtspReader, RepeatedHeadersAreAllKept) {
    const Taken taken =
        take("RTSP/1.0 401 No\r\nWWW-Authenticate: Basic\r\nwww-authenticate: Digest\r\n\r\n");
    EXPECT_EQ(taken.messages.at(0).headers.count("WWW-Authenticate"), 2U);
    EXPECT_EQ(taken.messages.at(0).sequence(), -1);
}

TEST(RtspReader, BareNewlinesAndExtraLineEndsAreAccepted) {
    const Taken taken = take("\r\n\nRTSP/1.0 200 OK\nCSeq: 1\n\n\r\nRTSP/1.0 200 OK\r\nCSeq: 2\r\n\r\n");
    EXPECT_TRUE(taken.good);
    EXPECT_EQ(taken.messages.size(), 2U);
}

TEST(RtspReader, TunnelAnswersHaveNoBodyWhateverTheirContentLength) {
    const Taken taken =
        take("HTTP/1.0 200 OK\r\nContent-Type: application/x-rtsp-tunnelled\r\nContent-Length: 32767\r\n\r\n"
             "RTSP/1.0 200 OK\r\nCSeq: 1\r\n\r\n");
    EXPECT_EQ(taken.messages.size(), 2U);
}

TEST(RtspReader, BytesThatAreNotRtspAreAnError) {
    for (const std::string& bytes :
         {std::string("nonsense\r\n\r\n"), std::string("RTSP/1.0 99 Low\r\n\r\n"),
          std::string("RTSP/1.0 1000 High\r\n\r\n"), std::string("RTSP/1.0 \r\n\r\n"),
          std::string(RtspReader::headerLimit + 1, 'x'),
          "RTSP/1.0 200 OK\r\nX: " + std::string(RtspReader::headerLimit, 'x') + "\r\n\r\n",
          std::string("RTSP/1.0 200 OK\r\nContent-Length: 1000000000\r\n\r\n"),
          std::string("RTSP/1.0 200 OK\r\nContent-Length: -1\r\n\r\n"),
          std::string("RTSP/1.0 200 OK\r\nContent-Length: 99999999999999999999\r\n\r\n"),
          std::string("\0\0\0\0\r\n\r\n", 8)}) {
        const Taken taken = take(bytes, 1000);
        EXPECT_FALSE(taken.good) << bytes.substr(0, 40);
        EXPECT_THAT(taken.messages, IsEmpty());
    }
}

TEST(RtspReader, NoiseDoesNoHarm) {
    std::mt19937 random(11);
    const std::string alphabet("$\0\1RTSP/1.0 200 OK\r\n\r\nContent-Length: 9\r\n", 42);
    for (int round = 0; round < 300; ++round) {
        std::string noise;
        for (int i = 0; i < 400; ++i)
            noise += random() % 2 == 0 ? alphabet.substr(random() % alphabet.size())
                                       : std::string(1, static_cast<char>(random()));
        for (const RtspMessage& message : take(noise, 1 + random() % 50).messages)
            ASSERT_LE(message.body.size(), RtspReader::bodyLimit);
    }
}

TEST(RtspParameters, AreFoundByTheirWholeName) {
    const std::string transport =
        "RTP/AVP;multicast; destination=239.1.1.1;ttl=1;port=5000-5001;client_port=7-8";
    EXPECT_EQ(parameterIn(transport, "destination"), "239.1.1.1");
    EXPECT_EQ(numberAt(parameterIn(transport, "port")), 5000);
    EXPECT_EQ(numberAt(parameterIn(transport, "CLIENT_PORT")), 7);
    EXPECT_EQ(parameterIn(transport, "source"), "");
    EXPECT_EQ(parameterIn("", "port"), "");
    EXPECT_EQ(numberAt(""), -1);
    EXPECT_EQ(numberAt("x"), -1);
    EXPECT_EQ(numberAt("-5"), -1);
    EXPECT_EQ(numberAt(" 12x"), 12);
}

} // namespace
} // namespace streams

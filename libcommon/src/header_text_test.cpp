#include "libcommon/src/header_text.h"

#include <gtest/gtest.h>

using network::HeaderCollector;
using network::parseHeaderText;
using State = network::HeaderCollector::State;

namespace {

ResponseHeader parsed(const std::string& text) {
    ResponseHeader header;
    EXPECT_TRUE(parseHeaderText(text, header)) << text;
    return header;
}

bool isRefused(const std::string& text) {
    ResponseHeader header = {.statusCode = 7, .reason = "old", .headers = {}};
    const bool refused = !parseHeaderText(text, header);
    EXPECT_TRUE(!refused || (header.statusCode == 7 && header.reason == "old" && header.headers.empty()));
    return refused;
}

TEST(HeaderText, AnRtspResponse) {
    const ResponseHeader header = parsed("RTSP/1.0 200 OK\r\nCSeq: 3\r\nSession: 12345;timeout=60\r\n\r\n");
    EXPECT_EQ(header.statusCode, 200);
    EXPECT_EQ(header.reason, "OK");
    EXPECT_EQ(header.headers.size(), 2U);
    EXPECT_EQ(header.headers.at("Session"), "12345;timeout=60");
}

TEST(HeaderText, AnHttpResponse) {
    const ResponseHeader header = parsed("HTTP/1.1 401 Unauthorized\r\nContent-Length: 0\r\n\r\n");
    EXPECT_EQ(header.statusCode, 401);
    EXPECT_EQ(header.reason, "Unauthorized");
    EXPECT_EQ(header.headers.at("Content-Length"), "0");
}

TEST(HeaderText, NamesIgnoreCaseAndAMissingOneIsEmpty) {
    ResponseHeader header = parsed("RTSP/1.0 200 OK\r\ncontent-LENGTH: 5\r\n\r\n");
    EXPECT_EQ(header.headers["Content-Length"], "5");
    EXPECT_EQ(header.headers["Transport"], "");
}

TEST(HeaderText, LineEndsMayLackTheCarriageReturn) {
    const ResponseHeader header = parsed("RTSP/1.0 200 OK\nA: 1\r\nB: 2\n\n");
    EXPECT_EQ(header.headers.at("A"), "1");
    EXPECT_EQ(header.headers.at("B"), "2");
}

TEST(HeaderText, BlanksAroundNamesAndValuesAreDropped) {
    const ResponseHeader header = parsed("RTSP/1.0  200   Very  OK \r\nA :  1 \t\r\nB:\r\nC:x: y\r\n\r\n");
    EXPECT_EQ(header.reason, "Very  OK");
    EXPECT_EQ(header.headers.at("A"), "1");
    EXPECT_EQ(header.headers.at("B"), "");
    EXPECT_EQ(header.headers.at("C"), "x: y");
}

TEST(HeaderText, FoldedLinesAreJoined) {
    const ResponseHeader header =
        parsed("RTSP/1.0 200 OK\r\nTransport: RTP/AVP;unicast;\r\n\t client_port=5000\r\n  ;x\r\n"
               "A: 1\r\n\r\n");
    EXPECT_EQ(header.headers.at("Transport"), "RTP/AVP;unicast; client_port=5000 ;x");
    EXPECT_EQ(header.headers.at("A"), "1");
}

TEST(HeaderText, RepeatedNamesAreJoined) {
    const ResponseHeader header =
        parsed("RTSP/1.0 200 OK\r\nPublic: DESCRIBE\r\nA: 1\r\nPUBLIC: SETUP\r\n PLAY\r\n\r\n");
    EXPECT_EQ(header.headers.at("Public"), "DESCRIBE, SETUP PLAY");
}

TEST(HeaderText, AReasonIsOptional) {
    EXPECT_EQ(parsed("RTSP/1.0 200\r\n\r\n").statusCode, 200);
    EXPECT_EQ(parsed("HTTP/1.1 999 \r\n\r\n").statusCode, 999);
    EXPECT_EQ(parsed("HTTP/1.1 100 Continue\r\n\r\n").statusCode, 100);
    EXPECT_EQ(parsed("RTSP/1.0 200 \xc3\x9c\xff\r\n\r\n").reason, "\xc3\x9c\xff");
}

TEST(HeaderText, MalformedStatusLines) {
    for (const char* line : {"",
                             "RTSP",
                             "RTSP/1.0",
                             "RTSP/1.0 ",
                             "RTSP/1.0 20",
                             "RTSP/1.0 2000",
                             "RTSP/1.0 099 x",
                             "RTSP/1.0 OK",
                             "RTSP/1.0 2x0 OK",
                             "RTSP/1.0 200OK",
                             "RTSP/1.0 -20",
                             "RTSP/.0 200 OK",
                             "RTSP/1. 200 OK",
                             "RTSP/1 200 OK",
                             "RTSP/x.0 200 OK",
                             "RTSP/1.x 200 OK",
                             "RTSP/ 200 OK",
                             "RTSP 200 OK",
                             "rtsp/1.0 200 OK",
                             "ICY 200 OK",
                             "HTTPS/1.1 200 OK",
                             " RTSP/1.0 200 OK",
                             "OPTIONS * RTSP/1.0",
                             "A: 1",
                             "RTSP/1.0200 OK.",
                             "RTSP/1 2.00 OK"})
        EXPECT_TRUE(isRefused(std::string(line) + "\r\nCSeq: 1\r\n\r\n")) << line;
}

TEST(HeaderText, MalformedHeaderLines) {
    for (const char* line : {"no colon", ": no name", " : no name", "two words: x", "<html>: x", "a\rb: x",
                             "a(b): x", " folded before any header"})
        EXPECT_TRUE(isRefused("RTSP/1.0 200 OK\r\n" + std::string(line) + "\r\n\r\n")) << line;
}

TEST(HeaderText, BinaryIsRefused) {
    for (const char byte : {'\0', '\x01', '\x08', '\x1b', '\x7f'}) {
        EXPECT_TRUE(isRefused("RTSP/1.0 200 O" + std::string(1, byte) + "\r\n\r\n"));
        EXPECT_TRUE(isRefused("RTSP/1.0 200 OK\r\nA: " + std::string(1, byte) + "\r\n\r\n"));
    }
}

TEST(HeaderText, WhatFollowsTheEmptyLineIsNotRead) {
    EXPECT_EQ(parsed("RTSP/1.0 200 OK\r\nA: 1\r\n\r\nB: 2\r\n").headers.size(), 1U);
}

const std::string header = "RTSP/1.0 200 OK\r\nCSeq: 1\r\n\r\n";

// The header that the collector finds when it gets the bytes in pieces of `size`, and the bytes that it leaves.
struct Collected {
    State state;
    std::string text;
    std::size_t taken;
};

Collected collected(const std::string& bytes, std::size_t size) {
    HeaderCollector collector;
    std::size_t taken = 0;
    while (taken < bytes.size() && collector.state() == State::Collecting)
        taken += collector.take(std::string_view(bytes).substr(taken, size));
    return {collector.state(), collector.text(), taken};
}

TEST(HeaderCollector, TakesTheHeaderAndNotAByteMoreInPiecesOfAnySize) {
    for (std::size_t size = 1; size < 60; ++size) {
        const Collected found = collected(header + "v=0\r\n\r\n", size);
        EXPECT_EQ(found.state, State::Complete);
        EXPECT_EQ(found.text, header);
        EXPECT_EQ(found.taken, header.size());
    }
}

TEST(HeaderCollector, InterleavedPacketsAndEmptyLinesBeforeTheHeaderAreSkipped) {
    const std::string big = std::string("$\x01\x02\x01", 4) + std::string(0x201, 'R');
    const std::string packets =
        std::string("$\0\0\5RTSP/", 9) + std::string("$\1\0\0", 4) + "\r\n" + big + "\n";
    for (std::size_t size = 1; size < 700; size += 13) {
        const Collected found = collected(packets + header + "x", size);
        EXPECT_EQ(found.state, State::Complete);
        EXPECT_EQ(found.text, header);
        EXPECT_EQ(found.taken, packets.size() + header.size());
    }
}

TEST(HeaderCollector, TheLargestPacketIsSkipped) {
    const std::string packet = std::string("$\x07\xff\xff", 4) + std::string(0xffff, '\0');
    EXPECT_EQ(collected(packet + header, 1000).text, header);
}

TEST(HeaderCollector, LineEndsOfBothKindsEndTheHeader) {
    for (const char* text : {"HTTP/1.1 200 OK\n\n", "HTTP/1.1 200 OK\r\n\n", "HTTP/1.1 200 OK\n\r\n"})
        EXPECT_EQ(collected(std::string(text) + "\n", 100).taken, std::string(text).size());
}

TEST(HeaderCollector, WhatCanNotBecomeAHeaderIsRefusedAtItsFirstWrongByte) {
    for (const auto& [text, taken] : {std::pair("<html>", 1), std::pair("RTXP", 3), std::pair("HTTP:", 5),
                                      std::pair("\x16\x03\x01", 1), std::pair("rtsp/1.0", 1)}) {
        const Collected found = collected(text, 100);
        EXPECT_EQ(found.state, State::Malformed) << text;
        EXPECT_EQ(found.taken, static_cast<std::size_t>(taken)) << text;
    }
    EXPECT_EQ(collected(std::string("RTSP/1.0 200 \0", 14), 100).state, State::Malformed);
}

TEST(HeaderCollector, ALongHeaderIsTakenToTheLimitAndNotBeyond) {
    const std::string start = "RTSP/1.0 200 OK\r\nA: ";
    const std::string end = "\r\n\r\n";
    const std::size_t room = network::maximumHeaderLength - start.size() - end.size();
    EXPECT_EQ(collected(start + std::string(room, 'x') + end, 1000).state, State::Complete);
    EXPECT_EQ(collected(start + std::string(room + 1, 'x') + end, 1000).state, State::TooLong);
    const Collected endless = collected(start + std::string(100'000, 'x'), 1000);
    EXPECT_EQ(endless.state, State::TooLong);
    EXPECT_EQ(endless.taken, network::maximumHeaderLength);
}

TEST(HeaderCollector, EndlessEmptyLinesAreTooLong) {
    EXPECT_EQ(collected(std::string(100'000, '\n'), 1000).state, State::TooLong);
}

} // namespace

#include "appliance/gateway/serving/request_reader.h"

#include <gmock/gmock.h>

namespace gateway {
namespace {

std::string mistake;

std::optional<Request> nextOf(RequestReader& reader) {
    mistake.clear();
    return reader.next(mistake);
}

TEST(RequestReader, RequestsComeInPieces) {
    RequestReader reader;
    EXPECT_TRUE(reader.add("\r\nOPTIONS * RTSP/1.0\r\nCSeq: 1\r\n"));
    EXPECT_FALSE(nextOf(reader));
    EXPECT_TRUE(reader.isInside());
    EXPECT_TRUE(reader.add("\r\nGET / HTTP/1.1\r\n\r\n"));
    const auto first = nextOf(reader);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->protocol, "RTSP");
    const auto second = nextOf(reader);
    ASSERT_TRUE(second);
    EXPECT_EQ(second->protocol, "HTTP");
    EXPECT_FALSE(nextOf(reader));
    EXPECT_FALSE(reader.isInside());
}

TEST(RequestReader, ReportsBetweenRequestsAreDropped) {
    RequestReader reader;
    reader.add(std::string("$\1\0\3abc$\1\0\1x", 12) + "TEARDOWN /a RTSP/1.0\r\n\r\n$");
    ASSERT_TRUE(nextOf(reader));
    EXPECT_FALSE(nextOf(reader));
    EXPECT_EQ(mistake, "");
    EXPECT_TRUE(reader.isInside());
}

TEST(RequestReader, ABodyIsLeftOutAndALongOneRefused) {
    RequestReader reader;
    reader.add("SET_PARAMETER / RTSP/1.0\r\nContent-Length: 3\r\n\r\nab");
    EXPECT_FALSE(nextOf(reader));
    reader.add("c");
    EXPECT_TRUE(nextOf(reader));
    reader.add("SET_PARAMETER / RTSP/1.0\r\nContent-Length: 99999999\r\n\r\n");
    EXPECT_FALSE(nextOf(reader));
    EXPECT_EQ(mistake, "the body is too long");
}

TEST(RequestReader, WhatIsNoRequestIsAMistake) {
    RequestReader reader;
    reader.add("nonsense\r\n\r\n");
    EXPECT_FALSE(nextOf(reader));
    EXPECT_EQ(mistake, "not a request");
    RequestReader endless;
    EXPECT_TRUE(endless.add("GET / HTTP/1.1\r\nX: " + std::string(maxHeadBytes, 'x')));
    EXPECT_FALSE(nextOf(endless));
    EXPECT_EQ(mistake, "not a request");
    EXPECT_FALSE(endless.add(std::string(4 * maxHeadBytes, 'x')));
}

} // namespace
} // namespace gateway

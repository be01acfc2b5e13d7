#include "appliance/serving/request_text.h"

#include <gtest/gtest.h>

namespace {

std::optional<Request> parse(const std::string& text) {
    const auto length = headLength(text);
    return length && *length == text.size() ? parseHead(text) : std::nullopt;
}

} // namespace

TEST(RequestText, ReadsAnOrdinaryRequest) {
    const auto request = parse("GET /a/b.cgi?x=1&y HTTP/1.1\r\nHost: h:80\r\nX-Thing:  two words \r\n\r\n");
    ASSERT_TRUE(request.has_value());
    EXPECT_EQ(request->method, "GET");
    EXPECT_EQ(request->target, "/a/b.cgi?x=1&y");
    EXPECT_EQ(request->path(), "/a/b.cgi");
    EXPECT_EQ(request->query(), "x=1&y");
    EXPECT_EQ(request->protocol, "HTTP");
    EXPECT_EQ(request->minorVersion, 1);
    EXPECT_EQ(request->header("x-thing"), "two words");
    EXPECT_FALSE(request->header("Missing").has_value());
}

TEST(RequestText, ATargetMayHaveBlanksAndAmpersands) {
    const auto request = parse("GET /ptz.cgi?gotoserverpresetname=Front door & yard HTTP/1.0\r\n\r\n");
    ASSERT_TRUE(request.has_value());
    EXPECT_EQ(request->target, "/ptz.cgi?gotoserverpresetname=Front door & yard");
    EXPECT_EQ(request->query(), "gotoserverpresetname=Front door & yard");
}

TEST(RequestText, AnRtspTargetMayBeAPathOrAUrl) {
    EXPECT_EQ(parse("DESCRIBE /mpeg4/1/media.orv RTSP/1.0\r\nCSeq: 1\r\n\r\n")->path(), "/mpeg4/1/media.orv");
    EXPECT_EQ(parse("DESCRIBE rtsp://127.0.0.1:554/mpeg4/1/media.orv?a RTSP/1.0\r\n\r\n")->path(),
              "/mpeg4/1/media.orv");
    EXPECT_EQ(parse("OPTIONS rtsp://host RTSP/1.0\r\n\r\n")->path(), "/");
    EXPECT_EQ(parse("OPTIONS * RTSP/1.0\r\n\r\n")->path(), "*");
    EXPECT_EQ(parse("GET /x?u=http://a/b HTTP/1.1\r\n\r\n")->path(), "/x");
}

TEST(RequestText, BareLineFeedsAreAccepted) {
    const auto request = parse("GET / HTTP/1.1\nA: b\n\n");
    ASSERT_TRUE(request.has_value());
    EXPECT_EQ(request->header("A"), "b");
}

TEST(RequestText, AnIncompleteHeadHasNoLength) {
    for (const char* text : {"", "GET / HTTP/1.1", "GET / HTTP/1.1\r\n", "GET / HTTP/1.1\r\nA: b\r\n\r"})
        EXPECT_FALSE(headLength(text).has_value()) << text;
    EXPECT_EQ(headLength("GET / HTTP/1.1\r\n\r\nmore"), 18U);
}

TEST(RequestText, MalformedRequestsAreRefused) {
    const std::string nul("GET /a\0b HTTP/1.1\r\n\r\n", 21);
    for (const std::string& text :
         {std::string("\r\n\r\n"), std::string("GET\r\n\r\n"), std::string("GET /\r\n\r\n"),
          std::string("GET  HTTP/1.1\r\n\r\n"), std::string("G(T / HTTP/1.1\r\n\r\n"),
          std::string("GET / HTTP/2.0\r\n\r\n"), std::string("GET / HTTP/1.\r\n\r\n"),
          std::string("GET / FTP/1.0\r\n\r\n"), std::string("GET / HTTP/1.1\r\nno colon\r\n\r\n"),
          std::string("GET / HTTP/1.1\r\n: empty\r\n\r\n"),
          std::string("GET / HTTP/1.1\r\n folded: x\r\n\r\n"), nul})
        EXPECT_FALSE(parseHead(text).has_value()) << text;
}

TEST(RequestText, TooManyHeadersAreRefused) {
    std::string text = "GET / HTTP/1.1\r\n";
    for (std::size_t i = 0; i < maxHeaders; ++i)
        text += "A: b\r\n";
    EXPECT_TRUE(parseHead(text + "\r\n").has_value());
    EXPECT_FALSE(parseHead(text + "A: b\r\n\r\n").has_value());
}

TEST(RequestText, QueryFieldsAreDecoded) {
    const std::string_view query = "camera=quad&a%20b=c%2Fd&flag&same=1&same=2&bad=%zz%4";
    EXPECT_EQ(queryField(query, "camera"), "quad");
    EXPECT_EQ(queryField(query, "a b"), "c/d");
    EXPECT_EQ(queryField(query, "flag"), "");
    EXPECT_EQ(queryField(query, "same"), "1");
    EXPECT_EQ(queryField(query, "bad"), "%zz%4");
    EXPECT_FALSE(queryField(query, "cam").has_value());
    EXPECT_EQ(queryField("&camera=1", "camera"), "1"); // a decoder's option string begins like this
}

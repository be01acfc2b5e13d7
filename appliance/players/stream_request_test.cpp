#include "appliance/players/stream_request.h"

#include <gtest/gtest.h>

namespace player {
namespace {

TEST(StreamRequest, EveryFormOfTheOptionsGivesAValidTarget) {
    const std::string cgi = "/vexo-cgi/mjpg/video.cgi";
    EXPECT_EQ(requestTarget(cgi, ""), cgi);
    EXPECT_EQ(requestTarget(cgi, "?"), cgi);
    EXPECT_EQ(requestTarget(cgi, "?&compression=30"), cgi + "?compression=30");
    EXPECT_EQ(requestTarget(cgi, "camera=1"), cgi + "?camera=1");
    EXPECT_EQ(requestTarget(cgi, "camera=quad&resolution=4CIF&compression=30"),
              cgi + "?camera=quad&resolution=4CIF&compression=30");
    EXPECT_EQ(requestTarget(cgi, "quad=1"), cgi + "?quad=1");
}

TEST(StreamRequest, WhatARequestLineCannotHoldIsEscaped) {
    EXPECT_EQ(requestTarget("/x", "a=b c\r\n#\"<>\x7f\xc3\xa4%20"),
              "/x?a=b%20c%0D%0A%23%22%3C%3E%7F%C3%A4%20");
}

TEST(StreamRequest, RequestGoesWhereTheOptionsSay) {
    PlayerOptions options;
    options.host = "127.0.0.1";
    options.port = 8443;
    options.https = true;
    options.user = "u";
    options.password = "p";
    options.patienceMs = 1234;
    const HttpSource source = requestOf(options, "/x");
    EXPECT_EQ(source.host, "127.0.0.1");
    EXPECT_EQ(source.port, 8443);
    EXPECT_TRUE(source.https);
    EXPECT_EQ(source.user, "u");
    EXPECT_EQ(source.password, "p");
    EXPECT_EQ(source.target, "/x");
    EXPECT_EQ(source.connectMs, 1234);
}

} // namespace
} // namespace player

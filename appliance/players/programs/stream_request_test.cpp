#include "appliance/players/programs/stream_request.h"

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

TEST(StreamRequest, CharactersThatARequestLineCannotContainAreEscaped) {
    EXPECT_EQ(requestTarget("/x", "a=b c\r\n#\"<>\x7f\xc3\xa4%20"),
              "/x?a=b%20c%0D%0A%23%22%3C%3E%7F%C3%A4%20");
}

TEST(StreamRequest, HttpRequestFollowsTheOptions) {
    PlayerOptions options;
    options.host = "127.0.0.1";
    options.port = 8443;
    options.https = true;
    options.user = "u";
    options.password = "p";
    options.patienceMs = 1234;
    const streams::HttpSource source = httpSourceOf(options, "/x");
    EXPECT_EQ(source.host, "127.0.0.1");
    EXPECT_EQ(source.port, 8443);
    EXPECT_TRUE(source.https);
    EXPECT_EQ(source.user, "u");
    EXPECT_EQ(source.password, "p");
    EXPECT_EQ(source.target, "/x");
    EXPECT_EQ(source.connectMs, 1234);
}

TEST(StreamRequest, RtspStreamFollowsTheOptions) {
    PlayerOptions options;
    options.host = "127.0.0.1";
    options.port = 8554;
    options.https = true;
    options.user = "u";
    options.password = "p";
    options.transport = streams::RtspTransport::http;
    options.udpPort = 20004;
    options.sourceNumber = 2;
    options.patienceMs = 1234;
    streams::RtspSource source = rtspSourceOf(options);
    EXPECT_EQ(source.host, "127.0.0.1");
    EXPECT_EQ(source.port, 8554);
    EXPECT_EQ(source.path, "/mpeg4/2/media.orv");
    EXPECT_EQ(source.transport, streams::RtspTransport::http);
    EXPECT_TRUE(source.tls);
    EXPECT_EQ(source.user, "u");
    EXPECT_EQ(source.password, "p");
    EXPECT_EQ(source.udpPort, 20004);
    EXPECT_EQ(source.answerMs, 1234);

    options.sourceNumber = 0;
    options.patienceMs = 0;
    source = rtspSourceOf(options);
    EXPECT_EQ(source.path, "/mpeg4/quad/media.orv");
    EXPECT_GT(source.answerMs, 0) << "requests have a limit, also when the picture has none";
}

} // namespace
} // namespace player

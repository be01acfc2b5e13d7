// Detection of an encoder whose RTSP server is GStreamer's, with its defaults, and whose HTTP server is nginx.
//
// That server names its tracks "stream=0" and so on, and its session ids are not numbers. A detection asks for
// "trackID=1" and repeats a session id as a number. So the server answers DESCRIBE, but then does not know the track;
// or, if the track has that name, it does not know the session.
#include "detect/network_detection_fixture.h"
#include "tests/fakes/network_namespace.h"
#include "tests/peers/nginx.h"
#include "tests/peers/stock_rtsp_server.h"
#include "tests/support/delayed_relay.h"

#include <libcommon/libcommon.h>

#include <gmock/gmock.h>

namespace {

using detect_test::statusId;
using peers::StockRtspOptions;
using testing::HasSubstr;

class RtspServerDetection : public detect_test::NetworkDetection {
protected:
    void SetUp() override {
        if (const std::string reason = peers::missing({"nginx"}); !reason.empty())
            GTEST_SKIP() << reason;
        if (const std::string reason = enterNetworkNamespace(); !reason.empty())
            GTEST_SKIP() << reason;
        entry_.userName = "viewer";
        entry_.password = "s3cret";
    }

    // On the standard ports, because the address has none.
    bool detectServer(const StockRtspOptions& options) {
        peers::NginxOptions http;
        http.port = 80;
        http.parameters = {{"Properties.API.HTTP.Version", "2"}, {"Properties.Image.Format", "jpeg,mpeg4"}};
        const peers::Nginx nginx(http);
        const peers::StockRtspServer server(options);
        const scripted::DelayedRelay relay(554, server.port(), std::chrono::milliseconds(0));
        return detect("127.0.0.1", 10);
    }
};

TEST_F(RtspServerDetection, IsAcceptedAsRtspOverTcp) {
    EXPECT_TRUE(detectServer({}));
    EXPECT_EQ(status(statusId, "ErrorCode"), "0") << trace();
    EXPECT_EQ(status(statusId, "VideoSourceType"), "rtsp-tcp");
    EXPECT_EQ(status(statusId, "ConnectMode"), "http");
    EXPECT_EQ(status(statusId, "Audio"), "no");
    EXPECT_EQ(entry_.rtspHost, "127.0.0.1");
    EXPECT_EQ(entry_.rtspPort, 554);
    EXPECT_THAT(trace(), HasSubstr("DESCRIBE /mpeg4/1/media.orv -> 200"));
    EXPECT_THAT(trace(), HasSubstr("Transport: RTP/AVP;multicast -> 404"));
}

TEST_F(RtspServerDetection, TextSessionIdsAreAcceptedAsRtspOverTcpToo) {
    EXPECT_TRUE(detectServer({.track = "trackID=1"}));
    EXPECT_EQ(status(statusId, "ErrorCode"), "0") << trace();
    EXPECT_EQ(status(statusId, "VideoSourceType"), "rtsp-tcp");
    EXPECT_THAT(trace(), HasSubstr("-> 200 \"OK\", Transport: \"RTP/AVP;unicast;client_port="));
    EXPECT_THAT(trace(), testing::ContainsRegex("PLAY /mpeg4/1/media.orv, Session: -?[0-9]+ -> 454"));
}

TEST_F(RtspServerDetection, BasicCredentials) {
    EXPECT_TRUE(detectServer({.basic = true}));
    EXPECT_EQ(status(statusId, "ErrorCode"), "0") << trace();
    EXPECT_EQ(status(statusId, "VideoSourceType"), "rtsp-tcp");
    EXPECT_EQ(status(statusId, "ConnectMode"), "http-auth");
}

TEST_F(RtspServerDetection, WrongCredentialsGiveNoStream) {
    entry_.password = "guess";
    EXPECT_TRUE(detectServer({.basic = true}));
    EXPECT_EQ(status(statusId, "ErrorCode"), "20") << trace();
}

TEST_F(RtspServerDetection, AnotherPathGivesNoStream) {
    EXPECT_TRUE(detectServer({.path = "/live"}));
    EXPECT_EQ(status(statusId, "ErrorCode"), "20") << trace();
}

TEST_F(RtspServerDetection, ConfiguredAsRtspOverTcpItIsAccepted) {
    entry_.configuredType = TYPE_RTSP_TCP;
    EXPECT_TRUE(detectServer({}));
    EXPECT_EQ(status(statusId, "ErrorCode"), "0") << trace();
    EXPECT_EQ(status(statusId, "VideoSourceType"), "rtsp-tcp");
}

TEST_F(RtspServerDetection, ConfiguredAsUnicastOrMulticastItFails) {
    for (const int type : {TYPE_RTSP_UNICAST, TYPE_RTSP_MULTICAST}) {
        entry_.configuredType = type;
        EXPECT_TRUE(detectServer({}));
        EXPECT_EQ(status(statusId, "ErrorCode"), "11") << trace();
    }
}

} // namespace

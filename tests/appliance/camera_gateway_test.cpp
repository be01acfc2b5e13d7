// Cameras of others as sources: the real gateway, supervisor and players, with GStreamer's RTSP server as the camera.
#include "appliance/players/testing/test_rtsp_server.h"
#include "tests/appliance/appliance.h"
#include "tests/appliance/camera_gateway.h"

#include <csignal>
#include <gmock/gmock.h>

namespace {

using appliance::Appliance;
using appliance::CameraGateway;
using appliance::eventually;
using player::TestRtspServer;
using testing::HasSubstr;
using testing::Not;

constexpr int cameraMark = 9; // of TestRtspServer's pictures

class CameraGatewayTest : public testing::Test {
protected:
    static std::string url(const TestRtspServer& camera, const std::string& path,
                           const std::string& who = "") {
        return "rtsp://" + who + "127.0.0.1:" + std::to_string(camera.port()) + path;
    }
    void expectPlayed(int index = 0, int mark = cameraMark) {
        EXPECT_TRUE(decoder_.showsMoving(mark)) << decoder_.ctl({"explain", std::to_string(index)}).output;
        EXPECT_EQ(decoder_.sourceValue(index, "ErrorCode"), "0");
        EXPECT_EQ(decoder_.sourceValue(index, "Reason"), "");
    }

    Appliance decoder_;
};

TEST_F(CameraGatewayTest, AUrlAloneMakesASource) {
    const TestRtspServer camera({.path = "/live/main"});
    decoder_.addSource("Yard", {{"URL", url(camera, "/live/main")}});
    const CameraGateway gateway(decoder_);
    decoder_.start();
    expectPlayed();
    EXPECT_EQ(decoder_.sourceValue(0, "VideoSourceType"), "rtsp-tcp");
    EXPECT_EQ(decoder_.sourceValue(0, "NumberOfVideoSources"), "1");
    EXPECT_THAT(camera.transports(), HasSubstr("udp"));
}

TEST_F(CameraGatewayTest, CredentialsInTheUrlPlayAndLeaveTheUrl) {
    const TestRtspServer camera({.digest = true, .path = "/live"});
    decoder_.addSource("Yard", {{"URL", url(camera, "/live", "viewer:secret@")}});
    const CameraGateway gateway(decoder_);
    decoder_.start();
    expectPlayed();
    EXPECT_THAT(gateway.log() + decoder_.log(), Not(HasSubstr("secret")));
    EXPECT_THAT(decoder_.ctl({"get", "Encoder.Yard.URL"}).output, Not(HasSubstr("secret")));
}

TEST_F(CameraGatewayTest, TheHighestNumberStaysWhenACameraIsRemoved) {
    const TestRtspServer camera({.path = "/live"});
    for (const char* name : {"One", "Two", "Three"})
        decoder_.addSource(name, {{"URL", url(camera, "/live")},
                                  {"AutoEnabled", name == std::string("Three") ? "yes" : "no"}});
    const CameraGateway gateway(decoder_);
    std::string text = appliance::readFile(decoder_.parameterFile());
    const std::size_t from = text.find("[Encoder.One]");
    text.erase(from, text.find("[Encoder.Two]") - from);
    appliance::writeFile(decoder_.parameterFile(), text);
    decoder_.start();
    expectPlayed(1);
    EXPECT_EQ(decoder_.sourceValue(1, "NumberOfVideoSources"), "3");
}

TEST_F(CameraGatewayTest, OtherEncodingsPlay) {
    struct Kind {
        const char* name;
        const char* encoding;
    };
    for (const Kind& kind :
         {Kind{"H265",
               "x265enc tune=zerolatency speed-preset=ultrafast key-int-max=10 ! rtph265pay name=pay0 pt=96"},
          Kind{"JPEG", "jpegenc ! rtpjpegpay name=pay0 pt=26"}}) {
        Appliance decoder;
        const TestRtspServer camera({.encoding = kind.encoding, .path = "/live"});
        decoder.addSource("Yard", {{"URL", url(camera, "/live")}});
        const CameraGateway gateway(decoder);
        decoder.start();
        EXPECT_TRUE(decoder.showsMoving(cameraMark)) << kind.name << '\n' << gateway.log();
        EXPECT_EQ(decoder.sourceValue(0, "Reason"), "") << kind.name;
    }
}

TEST_F(CameraGatewayTest, Mpeg4AndATextSessionIdPlay) {
    constexpr int mark = 56;
    const appliance::Encoder camera(
        "Camera", mark, {"--kinds", "rtsp-tcp,rtsp-unicast", "--codec", "mpeg4", "--session-ids", "text"},
        decoder_.root() + "/camera.log");
    decoder_.addSource("Yard", {{"URL", "rtsp://" + camera.address() + "/mpeg4/1/media.orv"}});
    const CameraGateway gateway(decoder_);
    decoder_.start();
    expectPlayed(0, mark);
}

TEST_F(CameraGatewayTest, MotionJpegOverHttpPlaysWithEachKindOfCredentials) {
    constexpr int mark = 55;
    for (const bool digest : {false, true}) {
        Appliance decoder;
        std::vector<std::string> arguments{"--user", "viewer", "--password", "secret"};
        if (digest)
            arguments.emplace_back("--digest");
        const appliance::Encoder camera("Camera", mark, arguments, decoder.root() + "/camera.log");
        decoder.addSource("Yard",
                          {{"URL", "http://" + camera.address() + "/vexo-cgi/mjpg/video.cgi?camera=1"},
                           {"UserName", "viewer"},
                           {"Password", "secret"}});
        const CameraGateway gateway(decoder);
        decoder.start();
        EXPECT_TRUE(decoder.showsMoving(mark)) << digest << '\n' << gateway.log();
        EXPECT_EQ(decoder.sourceValue(0, "VideoSourceType"), "mjpeg");
    }
}

TEST_F(CameraGatewayTest, AddChecksWritesAndShows) {
    const TestRtspServer camera({.basic = true, .path = "/live"});
    const CameraGateway gateway(decoder_);
    decoder_.start();
    const appliance::Finished refused = decoder_.ctl({"add", "Yard", url(camera, "/live", "viewer:wrong@")});
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.errors, HasSubstr("refuses the user name or password"));
    const appliance::Finished added = decoder_.ctl({"add", "Yard", url(camera, "/live", "viewer:secret@")});
    EXPECT_EQ(added.status, 0) << added.errors;
    EXPECT_THAT(added.output, HasSubstr("H264, 352x288"));
    EXPECT_THAT(added.output, HasSubstr("a key picture every 0.4 s"));
    EXPECT_TRUE(eventually([&] { return decoder_.sourceValue(0, "Configured.AutoEnabled") == "yes"; }));
    const appliance::Finished applied = decoder_.ctl({"connect"});
    EXPECT_EQ(applied.status, 0) << applied.errors;
    expectPlayed();
    EXPECT_EQ(decoder_.ctl({"add", "yard", url(camera, "/live", "viewer:secret@")}).status, 1);
}

TEST_F(CameraGatewayTest, RemoveRenameAndOrderKeepNumbers) {
    const TestRtspServer camera({.path = "/live"});
    for (const char* name : {"One", "Two", "Three"})
        decoder_.addSource(name, {{"URL", url(camera, "/live")}});
    const CameraGateway gateway(decoder_);
    EXPECT_EQ(decoder_.ctl({"remove", "One"}).status, 0);
    EXPECT_EQ(decoder_.ctl({"rename", "Two", "Second"}).status, 0);
    EXPECT_EQ(decoder_.ctl({"order", "Three"}).status, 0);
    EXPECT_EQ(decoder_.ctl({"sources", "--names"}).output, "Three\nSecond\n");
    EXPECT_EQ(decoder_.ctl({"get", "Encoder.Second.VideoSourceNumber"}).output, "2\n");
    EXPECT_EQ(decoder_.ctl({"add", "Four", "--unchecked", url(camera, "/live")}).status, 0);
    EXPECT_TRUE(eventually([&] {
        return decoder_.ctl({"get", "Encoder.Four.VideoSourceNumber"}).output == "4\n";
    }));
    EXPECT_EQ(decoder_.ctl({"get", "Gateway.HighestNumber"}).output, "4\n");
}

} // namespace

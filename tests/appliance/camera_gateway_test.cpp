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

} // namespace

// What a person sees of a camera that does not play: the label on the screen, `decoderctl source`, `explain` and `sources`.
#include "appliance/players/testing/test_rtsp_server.h"
#include "appliance/screen/appliance_view.h"
#include "appliance/screen/label_content.h"
#include "tests/appliance/appliance.h"
#include "tests/appliance/camera_gateway.h"

#include <libcommon/clock.h>
#include <libcommon/paths.h>

#include <csignal>
#include <cstdlib>
#include <gmock/gmock.h>
#include <optional>
#include <string>
#include <unistd.h>

namespace {

using appliance::Appliance;
using appliance::CameraGateway;
using appliance::eventually;
using appliance::Oddity;
using player::TestRtspServer;
using testing::HasSubstr;

constexpr int cameraMark = 9; // of TestRtspServer's pictures

class CameraReasons : public testing::Test {
protected:
    CameraReasons() {
        // For the label in this process. Cameras have no root.
        setenv("APPLIANCE_ROOT", decoder_.root().c_str(), 1);
        EXPECT_EQ(libcommon::applianceRoot(), decoder_.root());
        unsetenv("APPLIANCE_ROOT");
    }

    void start(const std::string& url, const appliance::Keys& more = {}) {
        appliance::Keys keys{{"URL", url}};
        keys.insert(more.begin(), more.end());
        decoder_.addSource("Yard", keys);
        gateway_.emplace(decoder_);
        decoder_.start();
    }
    static std::string urlOf(const TestRtspServer& camera, const std::string& path = "/live") {
        return "rtsp://127.0.0.1:" + std::to_string(camera.port()) + path;
    }

    // The reason in the label, as decoder-monitor draws it. No picture is on the screen.
    static std::string label() {
        screen::LabelContent content;
        return content.at(gettimeusec(), {}, {}, screen::ApplianceView()).reason;
    }
    // Everywhere a person may look.
    void expectShown(const std::string& reason) {
        EXPECT_TRUE(eventually([&] { return label() == reason; }, appliance::Seconds(30)))
            << "the label says \"" << label() << "\"";
        // The reason is beside the error, which comes when the player or the detection has ended.
        EXPECT_TRUE(eventually([&] {
            return decoder_.ctl({"sources"}).output.find(reason) != std::string::npos;
        })) << decoder_.ctl({"sources"}).output;
        EXPECT_THAT(decoder_.ctl({"source", "0"}).output, HasSubstr(reason));
        EXPECT_THAT(decoder_.ctl({"explain", "0"}).output, HasSubstr(reason));
    }

    Appliance decoder_;
    std::optional<CameraGateway> gateway_;
};

TEST_F(CameraReasons, AWrongPassword) {
    const TestRtspServer camera({.digest = true, .path = "/live"});
    start(urlOf(camera), {{"UserName", "viewer"}, {"Password", "wrong"}});
    expectShown("127.0.0.1:" + std::to_string(camera.port()) + " refuses the user name or password");
}

TEST_F(CameraReasons, NoPassword) {
    const TestRtspServer camera({.basic = true, .path = "/live"});
    start(urlOf(camera));
    expectShown("127.0.0.1:" + std::to_string(camera.port()) + " asks for a user name and a password");
}

TEST_F(CameraReasons, AWrongPath) {
    const TestRtspServer camera({.path = "/live"});
    start(urlOf(camera, "/other"));
    expectShown("127.0.0.1:" + std::to_string(camera.port()) + " has no stream at this path");
}

TEST_F(CameraReasons, AnUnreachableCamera) {
    start("rtsp://127.0.0.1:1/live");
    expectShown("127.0.0.1:1 refuses connections");
}

TEST_F(CameraReasons, ASilentCamera) {
    const Oddity camera([](int fd) {
        char byte = 0;
        while (read(fd, &byte, 1) > 0) {
        }
    });
    start("rtsp://" + camera.address() + "/live");
    expectShown(camera.address() + " does not answer DESCRIBE");
}

TEST_F(CameraReasons, ACodecThatCannotBeHandedOn) {
    const TestRtspServer camera(
        {.encoding = "theoraenc speed-level=3 ! rtptheorapay name=pay0 pt=96", .path = "/live"});
    start(urlOf(camera));
    expectShown("codec THEORA can't be shown");
}

TEST_F(CameraReasons, H265WithoutADecoder) {
    const TestRtspServer camera(
        {.encoding =
             "x265enc tune=zerolatency speed-preset=ultrafast key-int-max=10 ! rtph265pay name=pay0 pt=96",
         .path = "/live"});
    decoder_.setVariable("LD_PRELOAD", NO_DECODER);
    start(urlOf(camera));
    expectShown("codec H265 can't be decoded on this machine: its decoder is missing");
    // The reason goes when the decoder is there.
    decoder_.stop(SIGINT);
    decoder_.setVariable("LD_PRELOAD", "");
    decoder_.start();
    EXPECT_TRUE(decoder_.showsMoving(cameraMark)) << decoder_.log();
    EXPECT_TRUE(eventually([] { return label().empty(); })) << label();
}

} // namespace

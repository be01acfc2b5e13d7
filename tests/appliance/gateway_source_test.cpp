// video-encoder as a gateway, as its documentation tells users to set it up: a camera's URL as its input, and a source
// in decoder.conf with only the gateway's address.
#include "tests/appliance/appliance.h"

#include <gtest/gtest.h>

namespace {

using appliance::Appliance;
using appliance::Encoder;
using Arguments = std::vector<std::string>;

constexpr int cameraMark = 7; // read off the screen: the camera's pictures come through the gateway

// The frame mark survives a second encoding best if the gateway does not scale the pictures.
Arguments small(Arguments arguments) {
    arguments.insert(arguments.end(), {"--width", "352", "--height", "288"});
    return arguments;
}

class GatewaySource : public testing::Test {
protected:
    Encoder camera(const std::string& kinds) {
        return {"Camera", cameraMark, small({"--kinds", kinds}), decoder_.root() + "/camera.log"};
    }
    Encoder gateway(const Arguments& arguments) {
        return {"Gate", 1, small(arguments), decoder_.root() + "/gateway.log"};
    }
    void configure(const Encoder& encoder) {
        decoder_.set("Encoder.Gate.Address", encoder.address());
        decoder_.set("Encoder.Gate.AutoEnabled", "yes");
        decoder_.set("Encoder.Gate.ManualEnabled", "yes");
    }
    void expectPlayed(const std::string& type) {
        decoder_.start();
        EXPECT_TRUE(decoder_.showsMoving(cameraMark)) << decoder_.ctl({"explain", "0"}).output;
        EXPECT_EQ(decoder_.sourceValue(0, "VideoSourceType"), type);
        EXPECT_EQ(decoder_.sourceValue(0, "ErrorCode"), "0");
    }

    Appliance decoder_;
};

TEST_F(GatewaySource, MotionJpegPlaysWithOnlyAnAddress) {
    const Encoder source = camera("mjpeg");
    const Encoder gate = gateway({"--input", "http://" + source.address() + "/vexo-cgi/mjpg/video.cgi"});
    configure(gate);
    expectPlayed("mjpeg");
}

TEST_F(GatewaySource, RtspPlaysWithOnlyAnAddress) {
    const Encoder source = camera("rtsp-tcp");
    const Encoder gate = gateway({"--kinds", "mjpeg,rtsp-tcp", "--codec", "h264", "--input",
                                  "rtsp://" + source.address() + "/mpeg4/1/media.orv"});
    configure(gate);
    expectPlayed("rtsp-tcp");
}

TEST_F(GatewaySource, PlaysInManualModeToo) {
    const Encoder source = camera("mjpeg");
    const Encoder gate = gateway({"--input", "http://" + source.address() + "/vexo-cgi/mjpg/video.cgi"});
    configure(gate);
    decoder_.setManual();
    expectPlayed("mjpeg");
}

} // namespace

// Cameras that send to a multicast group, in a network of this test's own.
#include "tests/appliance/appliance.h"
#include "tests/appliance/camera_gateway.h"
#include "tests/appliance/isolation.h"

#include <gmock/gmock.h>

namespace {

using appliance::Appliance;
using appliance::CameraGateway;
using appliance::Encoder;
using appliance::eventually;

constexpr int mark = 41;

class CameraMulticast : public testing::Test {
protected:
    void SetUp() override {
        if (!appliance::isolate())
            GTEST_SKIP() << "multicast needs a network namespace, which this user may not create";
    }
    // A camera that sends to a group only.
    void expectPlayed(const std::string& transport) {
        const Encoder camera(
            "Camera", mark,
            {"--kinds", "rtsp-multicast", "--codec", "h264", "--width", "352", "--height", "288"},
            decoder_.root() + "/camera.log");
        decoder_.addSource(
            "Yard", {{"URL", "rtsp://" + camera.address() + "/mpeg4/1/media.orv"}, {"Transport", transport}});
        const CameraGateway gateway(decoder_);
        decoder_.start();
        EXPECT_TRUE(decoder_.showsMoving(mark)) << gateway.log();
        EXPECT_TRUE(eventually([&] { return decoder_.sourceValue(0, "Transport") == "multicast"; }))
            << decoder_.ctl({"source", "0"}).output;
        EXPECT_EQ(decoder_.sourceValue(0, "Reason"), "");
    }

    Appliance decoder_;
};

TEST_F(CameraMulticast, IsReceivedWhereTheSourceAsksForIt) {
    expectPlayed("multicast");
}

TEST_F(CameraMulticast, IsTriedByItselfWhereTheCameraOffersNothingElse) {
    expectPlayed("auto");
}

} // namespace

// Cameras that send to a multicast group, in a network of this test's own.
#include "appliance/players/testing/test_rtsp_server.h"
#include "tests/appliance/appliance.h"
#include "tests/appliance/camera_gateway.h"
#include "tests/appliance/isolation.h"

#include <gmock/gmock.h>

namespace {

using appliance::Appliance;
using appliance::CameraGateway;
using appliance::eventually;
using player::TestRtspServer;

class CameraMulticast : public testing::Test {
protected:
    void SetUp() override {
        if (!appliance::isolate())
            GTEST_SKIP() << "multicast needs a network namespace, which this user may not create";
    }
    void expectPlayed(const TestRtspServer& camera, const std::string& transport) {
        decoder_.addSource("Yard", {{"URL", "rtsp://127.0.0.1:" + std::to_string(camera.port()) + "/live"},
                                    {"Transport", transport}});
        const CameraGateway gateway(decoder_);
        decoder_.start();
        EXPECT_TRUE(decoder_.showsMoving(9)) << gateway.log();
        EXPECT_TRUE(eventually([&] { return decoder_.sourceValue(0, "Transport") == "multicast"; }))
            << decoder_.ctl({"source", "0"}).output;
        EXPECT_EQ(decoder_.sourceValue(0, "Reason"), "");
    }

    Appliance decoder_;
};

TEST_F(CameraMulticast, IsReceivedWhereTheSourceAsksForIt) {
    const TestRtspServer camera({.multicast = true, .path = "/live"});
    expectPlayed(camera, "multicast");
}

TEST_F(CameraMulticast, IsTriedByItselfWhereTheCameraOffersNothingElse) {
    const TestRtspServer camera({.multicast = true, .path = "/live"});
    expectPlayed(camera, "auto");
}

} // namespace

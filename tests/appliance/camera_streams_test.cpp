// What a camera's stream is like: main and sub stream, status values, streams without key pictures, and what happens when
// the gateway or the camera is replaced while it plays.
#include "appliance/players/testing/test_rtsp_server.h"
#include "tests/appliance/appliance.h"
#include "tests/appliance/camera_gateway.h"

#include <csignal>
#include <gmock/gmock.h>

namespace {

using appliance::Appliance;
using appliance::CameraGateway;
using appliance::Encoder;
using appliance::eventually;
using appliance::Oddity;
using player::TestRtspServer;
using testing::HasSubstr;

constexpr int mainMark = 41;
constexpr int subMark = 42;

class CameraStreams : public testing::Test {
protected:
    CameraStreams() { decoder_.setManual(); }

    std::unique_ptr<Encoder> camera(int mark, const std::string& width = "352",
                                    const std::string& height = "288",
                                    const std::string& codec = "h264") const {
        return std::make_unique<Encoder>("Camera", mark,
                                         std::vector<std::string>{"--kinds", "rtsp-tcp", "--codec", codec,
                                                                  "--width", width, "--height", height},
                                         decoder_.root() + "/camera" + std::to_string(mark) + ".log");
    }
    static std::string url(const std::string& place) { return "rtsp://" + place + "/mpeg4/1/media.orv"; }
    void start() {
        gateway_ = std::make_unique<CameraGateway>(decoder_);
        decoder_.start();
    }
    void expectShown(int mark) {
        EXPECT_TRUE(decoder_.showsMoving(mark)) << gateway_->log() << decoder_.ctl({"source", "0"}).output;
    }
    bool becomes(const std::string& key, const std::string& value) const {
        return eventually([&] { return decoder_.sourceValue(0, key) == value; });
    }

    Appliance decoder_;
    std::unique_ptr<CameraGateway> gateway_;
};

// ---- Main and sub stream.

class CameraQuality : public CameraStreams {
protected:
    // A camera with two streams, and one more source to go to.
    void addCamera(const std::string& quality) {
        appliance::Keys keys{{"URL", url(main_->address())}, {"SubURL", url(sub_->address())}};
        if (!quality.empty())
            keys["Quality"] = quality;
        decoder_.addSource("Yard", keys);
    }

    const std::unique_ptr<Encoder> main_ = camera(mainMark, "704", "576");
    const std::unique_ptr<Encoder> sub_ = camera(subMark);
};

TEST_F(CameraQuality, AutoFollowsTheScreensSizeWithTheNextPlayer) {
    addCamera("");
    decoder_.set("Screen.Size", "1280x720");
    decoder_.addSource("Other", {{"URL", url(sub_->address())}});
    start();
    expectShown(mainMark);
    EXPECT_TRUE(becomes("Resolution", "704x576"));
    const int player = decoder_.playerPid();
    EXPECT_EQ(decoder_.ctl({"set", "Screen.Size", "640x360"}).status, 0);
    // The player that shows the main stream keeps it.
    EXPECT_TRUE(becomes("Resolution", "704x576"));
    appliance::pause(std::chrono::milliseconds(1000));
    expectShown(mainMark);
    EXPECT_EQ(decoder_.playerPid(), player);
    EXPECT_EQ(decoder_.ctl({"select", "Other"}).status, 0);
    EXPECT_TRUE(decoder_.waitForSource(1));
    expectShown(subMark);
    EXPECT_EQ(decoder_.ctl({"select", "Yard"}).status, 0);
    EXPECT_TRUE(decoder_.waitForSource(0));
    EXPECT_TRUE(becomes("Resolution", "352x288")) << decoder_.ctl({"source", "0"}).output;
    expectShown(subMark);
}

TEST_F(CameraQuality, MainAndSubAreTakenWhateverTheScreen) {
    addCamera("main");
    decoder_.set("Screen.Size", "320x240");
    start();
    expectShown(mainMark);
    EXPECT_EQ(decoder_.ctl({"set", "Encoder.Yard.Quality", "sub"}).status, 0);
    EXPECT_EQ(decoder_.ctl({"set", "Encoder.Yard.DisplayTime", "11"}).status, 0); // for apply to do something
    appliance::pause(std::chrono::milliseconds(1500)); // the gateway has read the file by then
    EXPECT_EQ(decoder_.ctl({"apply"}).status, 0);
    expectShown(subMark);
}

TEST_F(CameraQuality, AddChecksAndWritesBothStreams) {
    start();
    const appliance::Finished refused =
        decoder_.ctl({"add", "Yard", url(main_->address()), "--sub", "rtsp://127.0.0.1:1/x"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.errors, HasSubstr("the sub stream: 127.0.0.1:1 refuses connections"));
    const appliance::Finished added =
        decoder_.ctl({"add", "Yard", url(main_->address()), "--sub", url(sub_->address())});
    EXPECT_EQ(added.status, 0) << added.errors;
    EXPECT_THAT(added.output, HasSubstr("H264, 704x576"));
    EXPECT_THAT(added.output, HasSubstr("sub stream: H264, 352x288"));
    EXPECT_EQ(decoder_.ctl({"get", "Encoder.Yard.SubURL"}).output, url(sub_->address()) + "\n");
}

// ---- Status.

TEST_F(CameraStreams, TheStatusTellsWhatTheStreamIs) {
    const auto camera = this->camera(mainMark);
    decoder_.addSource("Yard", {{"URL", url(camera->address())}, {"Transport", "tcp"}});
    start();
    expectShown(mainMark);
    EXPECT_TRUE(eventually([&] { return std::atof(decoder_.sourceValue(0, "FrameRate").c_str()) > 5; }))
        << decoder_.ctl({"source", "0"}).output;
    EXPECT_EQ(decoder_.sourceValue(0, "Codec"), "H264");
    EXPECT_EQ(decoder_.sourceValue(0, "Resolution"), "352x288");
    EXPECT_EQ(decoder_.sourceValue(0, "Transport"), "TCP");
    EXPECT_GT(std::atoi(decoder_.sourceValue(0, "BitRate").c_str()), 50);
    EXPECT_TRUE(eventually([&] { return decoder_.sourceValue(0, "KeyInterval") != ""; }));
    EXPECT_THAT(decoder_.ctl({"sources"}).output, HasSubstr("H264 352x288"));
    EXPECT_THAT(decoder_.ctl({"source", "0"}).output, HasSubstr("Codec=H264"));
    // The supervisor clears some of the values at a detection; they come again.
    decoder_.ctl({"disconnect"});
    decoder_.ctl({"flush"});
    decoder_.ctl({"connect"});
    EXPECT_TRUE(becomes("Resolution", "352x288"));
    camera->kill();
    EXPECT_TRUE(becomes("BitRate", ""));
    EXPECT_EQ(decoder_.sourceValue(0, "Codec"), "H264");
}

// ---- Streams without key pictures.

// An encoder that refreshes a part of each picture and marks one in 25 as a recovery point. Its parameter sets are in the
// description only.
constexpr const char* refreshing =
    "x264enc tune=zerolatency speed-preset=ultrafast bitrate=1500 key-int-max=25 "
    "intra-refresh=true ! rtph264pay name=pay0 pt=96 config-interval=0";

TEST_F(CameraStreams, AStreamWithoutKeyPicturesShowsWhoeverJoinsIt) {
    const TestRtspServer camera({.encoding = refreshing, .path = "/live"});
    const std::string place = "127.0.0.1:" + std::to_string(camera.port());
    decoder_.addSource("Yard", {{"URL", "rtsp://" + place + "/live"}});
    // The gateway that comes first gets the only key picture; the second one joins in the middle.
    Appliance other;
    other.addSource("Yard", {{"URL", "rtsp://" + place + "/live"}});
    const CameraGateway otherGateway(other);
    other.start();
    ASSERT_TRUE(other.showsMoving(9)) << otherGateway.log();
    appliance::pause(std::chrono::milliseconds(1500));
    start();
    expectShown(9);
    // A player that joins while the gateway is connected begins at the last recovery point.
    EXPECT_EQ(decoder_.ctl({"disconnect"}).status, 0);
    EXPECT_EQ(decoder_.ctl({"connect"}).status, 0);
    expectShown(9);
    EXPECT_TRUE(eventually([&] { return decoder_.sourceValue(0, "KeyInterval") != ""; }));
}

// ---- Replacing the gateway or the camera.

TEST_F(CameraStreams, AKilledGatewayComesBackAndSoDoesThePicture) {
    const auto camera = this->camera(mainMark);
    decoder_.addSource("Yard", {{"URL", url(camera->address())}});
    start();
    expectShown(mainMark);
    for (int i = 0; i < 2; ++i) {
        gateway_->process().signal(SIGKILL);
        gateway_->process().waitForEnd();
        gateway_->start();
        expectShown(mainMark);
    }
    EXPECT_TRUE(becomes("Reason", ""));
    EXPECT_TRUE(decoder_.supervisor().running());
}

TEST_F(CameraStreams, ACameraMayComeBackWithAnotherSizeAndCodec) {
    // A relay keeps the camera's address while the camera behind it is another one.
    const TestRtspServer h264({.encoding = "videoscale ! video/x-raw,width=640,height=480 ! x264enc "
                                           "tune=zerolatency speed-preset=ultrafast key-int-max=10 ! "
                                           "rtph264pay name=pay0 pt=96 config-interval=1",
                               .path = "/live"});
    auto first = std::make_unique<TestRtspServer>(player::RtspServerOptions{.path = "/live"});
    decoder_.addSource("Yard", {{"URL", "rtsp://127.0.0.1:" + std::to_string(first->port()) + "/live"}});
    start();
    expectShown(9);
    EXPECT_TRUE(becomes("Resolution", "352x288"));
    const std::string file = decoder_.parameterFile();
    // Another camera at another address under the same name: what a person does who replaces one.
    EXPECT_EQ(
        decoder_.ctl({"set", "Encoder.Yard.URL", "rtsp://127.0.0.1:" + std::to_string(h264.port()) + "/live"})
            .status,
        0);
    EXPECT_TRUE(becomes("Resolution", "640x480")) << gateway_->log();
    expectShown(9);
}

// ---- Hostile cameras.

TEST_F(CameraStreams, HostileCamerasCostTheOthersNothing) {
    const Oddity garbage([](int fd) {
        while (appliance::writeAll(fd, std::string(65536, '$'))) {
        }
    });
    const Oddity endless([](int fd) {
        appliance::writeAll(fd, "RTSP/1.0 200 OK\r\nCSeq: 1\r\n");
        while (appliance::writeAll(fd, "X-More: of the same\r\n")) {
        }
    });
    const Oddity slow([](int fd) {
        while (appliance::writeAll(fd, "R"))
            appliance::pause(std::chrono::milliseconds(20));
    });
    const auto camera = this->camera(mainMark);
    decoder_.addSource("Yard", {{"URL", url(camera->address())}, {"Transport", "tcp"}});
    const std::vector<std::string> hostile{garbage.address(), endless.address(), slow.address()};
    for (std::size_t i = 0; i < hostile.size(); ++i)
        decoder_.addSource("Hostile " + std::to_string(i), {{"URL", "rtsp://" + hostile[i] + "/x"}});
    start();
    expectShown(mainMark);
    const int player = decoder_.playerPid();
    // Others ask for the hostile cameras again and again, straight at the gateway's port.
    for (int round = 0; round < 3; ++round) {
        for (std::size_t i = 0; i < hostile.size(); ++i) {
            const std::string address = "rtsp://127.0.0.1:" + std::to_string(gateway_->port()) + "/mpeg4/" +
                                        std::to_string(i + 2) + "/media.orv";
            decoder_.ctl({"add", "Copy", address}); // refused, after the gateway has asked the camera
        }
        expectShown(mainMark);
    }
    EXPECT_EQ(decoder_.playerPid(), player);
    EXPECT_TRUE(eventually([&] { return std::atof(decoder_.sourceValue(0, "FrameRate").c_str()) > 5; }));
    EXPECT_EQ(decoder_.ctl({"sources", "--names"}).output, "Yard\nHostile 0\nHostile 1\nHostile 2\n");
}

} // namespace

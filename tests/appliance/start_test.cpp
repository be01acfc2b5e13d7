// From the start to the first picture, and the everyday use of a decoder.
#include "tests/appliance/appliance.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <nlohmann/json.hpp>

namespace {

using appliance::Appliance;
using appliance::Finished;
using appliance::Keys;

TEST(Start, FirstSourceIsDetectedAndItsPictureMoves) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    EXPECT_TRUE(decoder.waitForState("AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT"));
    EXPECT_EQ(decoder.currentSource(), 0);
    EXPECT_EQ(decoder.sourceValue(0, "ErrorCode"), "0");
    EXPECT_EQ(decoder.sourceValue(0, "VideoSourceType"), "mjpeg");
    EXPECT_EQ(decoder.sourceValue(0, "ConnectMode"), "http");
    EXPECT_NE(decoder.sourceValue(0, "Model"), "");
    EXPECT_THAT(decoder.players(), testing::ElementsAre(decoder.playerPid()));
    std::size_t at = 0;
    for (const char* state :
         {"START_UL(1)", "CONNECT(2)", "REQUEST_ENCODER_TYPE(6)",
          "LAUNCH_CURRENT_PLAYER_POS_WITH_NON_EXISTING(22)",
          "WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING(23)", "SINGLE_PLAYER_LAUNCHED(24)",
          "SINGLE_PLAYER_STARTED(25)", "AUTO_START_TIMER(36)", "AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT(37)"}) {
        at = decoder.log().find(std::string("-> ") + state, at);
        ASSERT_NE(at, std::string::npos) << state;
    }
}

TEST(Start, DetectionIsExplained) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    const Finished explained = decoder.ctl({"explain", "0"});
    EXPECT_EQ(explained.status, 0) << explained.errors;
    EXPECT_NE(explained.output.find("GET /vexo-cgi/mjpg/video.cgi"), std::string::npos) << explained.output;
    EXPECT_NE(explained.output.find("accepted"), std::string::npos) << explained.output;
}

TEST(Start, SnapshotIsThePictureOfTheSource) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.addEncoder("Garage");
    decoder.setManual();
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    ASSERT_EQ(decoder.ctl({"select", "1"}).status, 0);
    ASSERT_TRUE(decoder.showsMoving(1));
    const std::string file = decoder.root() + "/snapshot.png";
    const Finished taken = decoder.ctl({"snapshot", file});
    ASSERT_EQ(taken.status, 0) << taken.errors;
    int width = 0;
    int height = 0;
    int light = 0;
    int source = -1;
    const Finished read = appliance::runToEnd({PICTURE_MARK, file}, {});
    EXPECT_EQ(std::sscanf(read.output.c_str(), "%d %d %d %d", &width, &height, &light, &source), 4)
        << read.output;
    EXPECT_EQ(source, 1) << read.output << read.errors;
}

TEST(Start, StaysDisconnectedWithoutAutoConnect) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.set("Decoder.AutoConnect", "no");
    decoder.start();
    EXPECT_TRUE(decoder.waitForText(0, "Disconnected. My IP address: 127.0.0.1"));
    EXPECT_EQ(decoder.ctl({"get", "Decoder.Connected"}).output, "no\n");
    EXPECT_TRUE(decoder.players().empty());
    EXPECT_EQ(decoder.ctl({"connect"}).status, 0);
    EXPECT_TRUE(decoder.showsMoving(0));
    EXPECT_EQ(decoder.ctl({"get", "Decoder.Info.Connected"}).output, "yes\n");
}

TEST(Start, DisconnectsWithATextWhenThereIsNoUsableSource) {
    Appliance decoder;
    decoder.addSource("Nowhere", {{"Address", ""}});
    decoder.start();
    EXPECT_TRUE(decoder.waitForLog("No sources available in this mode."));
    EXPECT_TRUE(decoder.waitForText(0, "Disconnected. My IP address"));
}

TEST(Start, PlaysInNtsc) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.set("Decoder.VideoMode", "ntsc");
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    EXPECT_EQ(decoder.screen().mode(), screen::VideoMode::ntsc);
}

TEST(Select, ShowsTheOtherSource) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.addEncoder("Garage");
    decoder.setManual();
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    const int first = decoder.playerPid();
    const Finished selected = decoder.ctl({"select", "garage"});
    EXPECT_EQ(selected.status, 0) << selected.errors;
    EXPECT_TRUE(decoder.showsMoving(1));
    EXPECT_TRUE(decoder.waitForSource(1));
    EXPECT_TRUE(appliance::eventually([&] { return decoder.players().size() == 1; }));
    EXPECT_NE(decoder.playerPid(), first);
    EXPECT_EQ(decoder.ctl({"select", "0"}).status, 0);
    EXPECT_TRUE(decoder.showsMoving(0));
}

TEST(Select, ScreenNeverGoesDarkBetweenTwoSources) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.addEncoder("Garage");
    decoder.setManual();
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    const std::int64_t blankedBefore = decoder.screen().blankedAt();
    decoder.ctl({"select", "1"});
    ASSERT_TRUE(decoder.showsMoving(1));
    EXPECT_EQ(decoder.screen().blankedAt(), blankedBefore);
    // The frame numbers are consecutive, so no other frame was drawn in between.
    int changes = 0;
    int source = 0;
    for (const screen::FrameInfo& frame : decoder.screen().infosSince(0)) {
        changes += frame.source != source ? 1 : 0;
        source = frame.source;
    }
    EXPECT_EQ(changes, 1) << "the old source does not return after the first frame of the new one";
}

TEST(Select, SameEncoderInputKeepsThePlayerAndTurnsTheCamera) {
    Appliance decoder;
    appliance::Encoder& encoder = decoder.addEncoder("Gate", {}, {{"PTZ", "gate"}});
    decoder.addSource("Drive", {{"Address", encoder.address()}, {"PTZ", "drive"}});
    decoder.setManual();
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    const int player = decoder.playerPid();
    EXPECT_EQ(decoder.ctl({"select", "Drive"}).status, 0);
    EXPECT_TRUE(decoder.waitForSource(1));
    EXPECT_TRUE(decoder.waitForLog("-> SEND_ONLY_PTZ(8)"));
    EXPECT_TRUE(decoder.waitForState("MANUAL_WAIT_FOR_NEW_SELECTION"));
    EXPECT_TRUE(decoder.showsMoving(0)) << "both sources have the encoder's mark";
    EXPECT_EQ(decoder.playerPid(), player);
    EXPECT_EQ(encoder.gotos(), (std::vector<std::string>{"gate", "drive"}));
    EXPECT_EQ(decoder.sourceValue(1, "VideoSourceType"), "mjpeg");
}

TEST(Connect, DisconnectStopsAndConnectStartsAgain) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    EXPECT_EQ(decoder.ctl({"disconnect"}).status, 0);
    EXPECT_TRUE(decoder.waitForText(0, "Disconnected. My IP address: 127.0.0.1"));
    EXPECT_TRUE(appliance::eventually([&] { return decoder.players().empty(); }));
    EXPECT_EQ(decoder.currentSource(), -1);
    const nlohmann::json status = decoder.status();
    EXPECT_EQ(status["connected"], false);
    EXPECT_EQ(status["frame"]["blank"], true);
    EXPECT_EQ(status["leds"][0]["text"], "red, steady");
    EXPECT_EQ(decoder.ctl({"connect"}).status, 0);
    EXPECT_TRUE(decoder.showsMoving(0));
    EXPECT_TRUE(appliance::eventually([&] { return decoder.text(0).empty(); }));
}

TEST(Connect, SelectConnectsADisconnectedDecoder) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.addEncoder("Garage");
    decoder.set("Decoder.AutoConnect", "no");
    decoder.start();
    ASSERT_TRUE(decoder.waitForText(0, "Disconnected"));
    EXPECT_EQ(decoder.ctl({"select", "1"}).status, 0);
    EXPECT_TRUE(decoder.showsMoving(1));
}

TEST(Button, PausesShowsTheNextSourceDisconnectsAndConnects) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.addEncoder("Garage");
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    ASSERT_TRUE(decoder.waitForState("AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT"));
    EXPECT_EQ(decoder.ctl({"button"}).status, 0);
    EXPECT_TRUE(decoder.waitForText(1, "Sequence paused"));
    EXPECT_TRUE(decoder.showsMoving(0)) << "the paused source keeps playing";
    EXPECT_EQ(decoder.ctl({"button"}).status, 0);
    EXPECT_TRUE(decoder.showsMoving(1));
    EXPECT_EQ(decoder.text(1), "");
    ASSERT_TRUE(decoder.waitForState("AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT"));
    EXPECT_EQ(decoder.ctl({"button", "--hold"}).status, 0);
    EXPECT_TRUE(decoder.waitForText(0, "Disconnected"));
    EXPECT_EQ(decoder.ctl({"button"}).status, 0);
    EXPECT_TRUE(decoder.showsMoving(0));
}

TEST(SideBySide, TwoAppliancesDoNotDisturbEachOther) {
    Appliance one;
    Appliance other;
    one.addEncoder("One");
    other.addSource("Nobody", {{"Address", ""}}); // so that the marks differ
    other.addEncoder("Other");
    one.start();
    other.start();
    EXPECT_TRUE(one.showsMoving(0));
    EXPECT_TRUE(other.showsMoving(1));
    one.ctl({"disconnect"});
    EXPECT_TRUE(one.waitForText(0, "Disconnected"));
    EXPECT_TRUE(other.showsMoving(1));
    EXPECT_EQ(one.stop(SIGINT), 0);
    EXPECT_TRUE(other.showsMoving(1));
    EXPECT_EQ(one.ctl({"select", "0"}).status, 1);
    EXPECT_EQ(other.stop(SIGINT), 0);
}

} // namespace

// On-screen texts, the status LED, and the detections after a flush of the cache.
#include "tests/appliance/appliance.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using appliance::Appliance;
using appliance::Encoder;
using appliance::Oddity;

const std::vector<std::string> small{"--width", "352", "--height", "288"};

void neverAnswer(int fd) {
    while (appliance::readRequest(fd)) {
    }
    ::pause();
}

// The number of detections that the encoder has answered.
long detections(const Encoder& encoder) {
    long count = 0;
    for (const Encoder::Request& request : encoder.requests()) {
        count += request.target.find("Properties.API.HTTP.Version") != std::string::npos ? 1 : 0;
    }
    return count;
}

TEST(Display, DisconnectedDecoderShowsAnEmptyScreen) {
    Appliance decoder;
    decoder.addEncoder("Front door", small);
    decoder.set("Decoder.ShowDisconnectedMessage", "no");
    decoder.set("Alarm.DisplayTime", "600");
    decoder.setManual();
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    decoder.ctl({"alarm", "0", "fire"});
    ASSERT_TRUE(decoder.waitForText(2, "Message: fire"));
    EXPECT_NE(decoder.text(1), "");
    decoder.ctl({"disconnect"});
    ASSERT_TRUE(decoder.waitForState("DISCONNECTED"));
    EXPECT_TRUE(appliance::eventually(
        [&] { return decoder.text(0).empty() && decoder.text(1).empty() && decoder.text(2).empty(); }));
    EXPECT_EQ(decoder.status()["frame"]["blank"], true);
    EXPECT_EQ(decoder.status()["leds"][0]["text"], "red, steady");
}

TEST(Display, DetectionShowsATextAndBlinksAmber) {
    Appliance decoder;
    const Oddity silent(neverAnswer);
    decoder.addSource("Silent", {{"Address", silent.address()}});
    decoder.set("Decoder.AutoDetectTimeout", "60");
    decoder.start();
    EXPECT_TRUE(decoder.waitForText(0, "Automatically detecting encoder and connection type for Silent"));
    EXPECT_EQ(decoder.status()["leds"][0]["text"], "amber, blinking");
    decoder.ctl({"disconnect"});
    EXPECT_TRUE(decoder.waitForText(0, "Disconnected. My IP address: 127.0.0.1"));
    EXPECT_EQ(decoder.status()["leds"][0]["text"], "red, steady");
}

TEST(Flush, WhileDisconnectedTheNextConnectDetectsAgain) {
    Appliance decoder;
    const Encoder& encoder = decoder.addEncoder("Front door", small);
    decoder.start();
    for (const bool flush : {false, true}) {
        ASSERT_TRUE(decoder.showsMoving(0));
        EXPECT_EQ(detections(encoder), 1);
        decoder.ctl({"disconnect"});
        ASSERT_TRUE(decoder.waitForState("DISCONNECTED"));
        if (flush) {
            decoder.ctl({"flush"});
            EXPECT_TRUE(decoder.waitForLog("DISCONNECTED(3) -> FLUSH_CACHE(4)"));
        }
        decoder.ctl({"connect"});
    }
    EXPECT_TRUE(decoder.showsMoving(0));
    EXPECT_EQ(detections(encoder), 2);
}

TEST(Flush, WhileConnectedTheNextSelectionDetectsAgain) {
    Appliance decoder;
    decoder.addEncoder("Front door", small);
    const Encoder& encoder = decoder.addEncoder("Garage", small);
    decoder.setManual();
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    for (const bool flush : {false, true}) {
        decoder.ctl({"select", "1"});
        ASSERT_TRUE(decoder.showsMoving(1));
        EXPECT_EQ(detections(encoder), 1);
        decoder.ctl({"select", "0"});
        ASSERT_TRUE(decoder.showsMoving(0));
        if (flush) {
            decoder.ctl({"flush"});
            EXPECT_TRUE(decoder.showsMoving(0)) << "the current source keeps playing";
        }
    }
    decoder.ctl({"select", "1"});
    EXPECT_TRUE(decoder.waitForLog("SELECT_SOURCE_ID(9) -> FLUSH_CACHE_CONNECTED(20)"));
    EXPECT_TRUE(decoder.showsMoving(1));
    EXPECT_EQ(detections(encoder), 2);
}

} // namespace

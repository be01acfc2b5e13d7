// Which source comes next, and when.
#include "tests/appliance/appliance.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using appliance::Appliance;
using appliance::eventually;
using appliance::Oddity;

const std::vector<std::string> small{"--width", "352", "--height", "288"};

void neverAnswer(int fd) {
    while (appliance::readRequest(fd)) {
    }
    ::pause();
}

bool everDrew(Appliance& decoder, int source) {
    bool drew = false;
    for (const screen::FrameInfo& frame : decoder.screen().infosSince(0)) {
        drew = drew || frame.source == source;
    }
    return drew;
}

TEST(Sequence, ShowsEachEnabledSourceForItsDisplayTimeAndStartsAgain) {
    Appliance decoder;
    decoder.addEncoder("Front door", small, {{"DisplayTime", "1"}});
    decoder.addEncoder("Cellar", small, {{"AutoEnabled", "no"}});
    decoder.addEncoder("Garage", small, {{"DisplayTime", "2"}});
    decoder.start();
    EXPECT_TRUE(decoder.showsMoving(0));
    EXPECT_TRUE(decoder.showsMoving(2));
    EXPECT_TRUE(decoder.showsMoving(0));
    EXPECT_FALSE(everDrew(decoder, 1));
    const std::vector<double> shown = decoder.timesInLog("-> AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT(37)");
    const std::vector<double> left = decoder.timesInLog("-> AUTO_GOTO_NEXT_SOURCE(39)");
    ASSERT_GE(shown.size(), 2U);
    ASSERT_GE(left.size(), 2U);
    constexpr double late = 10; // seconds, for a busy machine
    EXPECT_GE(left[0] - shown[0], 0.99);
    EXPECT_LE(left[0] - shown[0], 1 + late);
    EXPECT_GE(left[1] - shown[1], 1.99);
    EXPECT_LE(left[1] - shown[1], 2 + late);
}

TEST(Sequence, ContinuesWithTheNextHigherIndexAfterASelection) {
    Appliance decoder;
    decoder.addEncoder("Front door", small);
    decoder.addEncoder("Cellar", small, {{"AutoEnabled", "no"}, {"DisplayTime", "1"}});
    decoder.addEncoder("Garage", small);
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    decoder.ctl({"select", "Cellar"});
    EXPECT_TRUE(decoder.showsMoving(1));
    EXPECT_TRUE(decoder.showsMoving(2)) << "the next higher index of the sequence";
}

TEST(Sequence, PauseLastsLongerThanTheDisplayTime) {
    Appliance decoder;
    decoder.addEncoder("Front door", small, {{"DisplayTime", "2"}});
    decoder.addEncoder("Garage", small, {{"DisplayTime", "2"}});
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    ASSERT_TRUE(decoder.waitForState("AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT"));
    decoder.ctl({"button"});
    ASSERT_TRUE(decoder.waitForState("AUTO_PAUSE"));
    const int source = decoder.currentSource(); // 1 if the press came late
    const std::size_t timers = decoder.timesInLog("-> AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT(37)").size();
    ASSERT_TRUE(decoder.waitForLog("adding event to queue (id=6", timers)) << "the display time has ended";
    EXPECT_TRUE(decoder.showsMoving(source));
    EXPECT_EQ(decoder.state(), "AUTO_PAUSE");
    decoder.ctl({"button"});
    EXPECT_TRUE(decoder.showsMoving(1 - source)) << "a press shows the next source";
    EXPECT_TRUE(decoder.waitForLog("Unknown timer ID, probably from previous crashed/interrupted PID."))
        << "the old timer is ignored";
    EXPECT_EQ(decoder.text(1), "");
}

TEST(Sequence, PressDuringADetectionPausesOnTheCurrentSource) {
    Appliance decoder;
    const Oddity silent(neverAnswer);
    decoder.set("Decoder.AutoDetectTimeout", "60");
    decoder.addEncoder("Front door", small, {{"DisplayTime", "1"}});
    decoder.addSource("Silent", {{"Address", silent.address()}});
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    const int player = decoder.playerPid();
    ASSERT_TRUE(decoder.waitForLog("-> REQUEST_ENCODER_TYPE(6)", 2));
    EXPECT_EQ(decoder.text(0), "") << "no text covers the picture";
    decoder.ctl({"button"});
    EXPECT_TRUE(decoder.waitForLog("REQUEST_ENCODER_TYPE(6) -> AUTO_PAUSE(43)"));
    EXPECT_TRUE(decoder.waitForText(1, "Sequence paused"));
    EXPECT_TRUE(decoder.showsMoving(0));
    EXPECT_EQ(decoder.playerPid(), player);
    EXPECT_EQ(decoder.currentSource(), 0);
}

TEST(Sequence, UnreachableSourceIsSkippedByAPressOrAfterFourSeconds) {
    Appliance decoder;
    decoder.addSource("Missing", {{"Address", "127.0.0.1:1"}});
    decoder.addSource("Missing as well", {{"Address", "127.0.0.1:2"}});
    decoder.addEncoder("Garage", small);
    decoder.start();
    ASSERT_TRUE(decoder.waitForState("AUTO_SLEEP_AFTER_ENCODER_REQUEST_FAILED"));
    EXPECT_TRUE(decoder.waitForText(0, "No connection to encoder Missing(127.0.0.1:1)"));
    EXPECT_EQ(decoder.status()["leds"][0]["text"], "red, steady");
    decoder.ctl({"button"});
    EXPECT_TRUE(decoder.waitForText(0, "No connection to encoder Missing as well(127.0.0.1:2)"));
    EXPECT_TRUE(decoder.showsMoving(2));
    const std::vector<double> failed = decoder.timesInLog("-> AUTO_SLEEP_AFTER_ENCODER_REQUEST_FAILED(40)");
    const std::vector<double> left = decoder.timesInLog("-> AUTO_GOTO_NEXT_SOURCE(39)");
    ASSERT_EQ(failed.size(), 2U);
    ASSERT_EQ(left.size(), 2U);
    EXPECT_GE(left[1] - failed[1], 3.99);
}

TEST(Manual, ShortPressShowsTheNextEnabledSourceAndWrapsAround) {
    Appliance decoder;
    decoder.addEncoder("Front door", small);
    decoder.addEncoder("Cellar", small, {{"ManualEnabled", "no"}});
    decoder.addEncoder("Garage", small);
    decoder.setManual();
    decoder.start();
    for (const int source : {0, 2}) {
        ASSERT_TRUE(decoder.showsMoving(source));
        ASSERT_TRUE(decoder.waitForSource(source));
        decoder.ctl({"button"});
    }
    EXPECT_TRUE(decoder.showsMoving(0));
    EXPECT_FALSE(everDrew(decoder, 1));
}

TEST(Manual, LongPressDisconnects) {
    Appliance decoder;
    decoder.addEncoder("Front door", small);
    decoder.setManual();
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    decoder.ctl({"button", "--hold"});
    EXPECT_TRUE(decoder.waitForText(0, "Disconnected. My IP address: 127.0.0.1"));
    EXPECT_EQ(decoder.ctl({"get", "Decoder.Connected"}).output, "no\n");
    EXPECT_TRUE(eventually([&] { return decoder.players().empty(); }));
    decoder.ctl({"button", "--hold"});
    ASSERT_TRUE(decoder.waitForLog("adding event to queue (id=4", 2));
    decoder.ctl({"flush"}); // queued behind the press
    EXPECT_TRUE(decoder.waitForLog("-> FLUSH_CACHE(4)"));
    EXPECT_EQ(decoder.countInLog("-> CONNECT(2)"), 1U) << "a long press does not connect";
    decoder.ctl({"button"});
    EXPECT_TRUE(decoder.showsMoving(0));
}

TEST(Button, DoesNothingWhenItIsDisabled) {
    Appliance decoder;
    decoder.addEncoder("Front door", small);
    decoder.set("Buttons.VideoSelectEnabled", "no");
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    decoder.ctl({"button"});
    decoder.ctl({"button", "--hold"});
    decoder.ctl({"select", "0"}); // queued behind the presses
    ASSERT_TRUE(decoder.waitForLog("adding event to queue (id=11"));
    EXPECT_EQ(decoder.countInLog("adding event to queue (id=4"), 0U);
    EXPECT_TRUE(decoder.showsMoving(0));
}

} // namespace

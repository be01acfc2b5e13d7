// Alarms and locks.
#include "tests/appliance/appliance.h"

#include <gtest/gtest.h>

namespace {

using appliance::Appliance;
using appliance::Finished;
using appliance::Seconds;
using Clock = std::chrono::steady_clock;

void addTwo(Appliance& decoder) {
    decoder.addEncoder("Front door");
    decoder.addEncoder("Garage");
}

TEST(Alarm, ShowsItsSourceAndItsText) {
    Appliance decoder;
    addTwo(decoder);
    decoder.setManual();
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    EXPECT_EQ(decoder.ctl({"alarm", "Garage", "Door", "open"}).status, 0);
    EXPECT_TRUE(decoder.waitForText(1, "ALARM: Garage(" + decoder.encoder(1).address() + ")"));
    EXPECT_TRUE(decoder.waitForText(2, "Message: Door open"));
    EXPECT_TRUE(decoder.showsMoving(1));
    EXPECT_TRUE(appliance::eventually([&] { return decoder.text(1).empty() && decoder.text(2).empty(); }))
        << "the alarm is cleared after its display time";
    EXPECT_TRUE(decoder.showsMoving(1)) << "the alarm's source keeps playing";
}

TEST(Alarm, LongTextIsCutBetweenCharactersWithAWarning) {
    Appliance decoder;
    addTwo(decoder);
    decoder.setManual();
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    std::string text;
    for (int i = 0; i < 20; ++i) {
        text += "\xc3\xbc"; // 40 bytes
    }
    const Finished alarm = decoder.ctl({"alarm", "1", text});
    EXPECT_EQ(alarm.status, 0);
    EXPECT_NE((alarm.output + alarm.errors).find("cut"), std::string::npos);
    EXPECT_TRUE(decoder.waitForText(2, "Message: " + text.substr(0, 38)));
    EXPECT_EQ(decoder.text(2), "Message: " + text.substr(0, 38));
}

TEST(Alarm, SecondAlarmWithinTheDisplayTimeIsDropped) {
    Appliance decoder;
    addTwo(decoder);
    decoder.set("Alarm.DisplayTime", "30");
    decoder.setManual();
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    decoder.ctl({"alarm", "1", "first"});
    ASSERT_TRUE(decoder.waitForText(2, "Message: first"));
    ASSERT_TRUE(decoder.showsMoving(1));
    ASSERT_TRUE(decoder.waitForState("MANUAL_WAIT_FOR_NEW_SELECTION"));
    decoder.ctl({"alarm", "0", "second"});
    ASSERT_TRUE(decoder.waitForLog("adding event to queue (id=8", 2));
    decoder.ctl({"button"}); // queued behind the alarm
    EXPECT_TRUE(decoder.showsMoving(0));
    EXPECT_EQ(decoder.text(2), "Message: first");
}

TEST(Alarm, WhileDisconnectedInManualModeConnectsAndShowsItsSource) {
    Appliance decoder;
    addTwo(decoder);
    decoder.setManual();
    decoder.set("Decoder.AutoConnect", "no");
    decoder.start();
    ASSERT_TRUE(decoder.waitForState("DISCONNECTED"));
    decoder.ctl({"alarm", "1", "fire"});
    EXPECT_TRUE(decoder.waitForText(2, "Message: fire"));
    EXPECT_TRUE(decoder.showsMoving(1));
}

TEST(Alarm, WhileDisconnectedInAutomaticModeIsDropped) {
    Appliance decoder;
    addTwo(decoder);
    decoder.set("Decoder.AutoConnect", "no");
    decoder.start();
    ASSERT_TRUE(decoder.waitForState("DISCONNECTED"));
    decoder.ctl({"alarm", "1", "fire"});
    ASSERT_TRUE(decoder.waitForLog("adding event to queue (id=8"));
    decoder.ctl({"flush"}); // queued behind the alarm
    EXPECT_TRUE(decoder.waitForLog("-> FLUSH_CACHE(4)"));
    EXPECT_TRUE(decoder.waitForState("DISCONNECTED"));
    EXPECT_TRUE(decoder.players().empty());
    EXPECT_EQ(decoder.text(2), "");
}

TEST(Alarm, IsDroppedWhenAlarmsAreDisabled) {
    Appliance decoder;
    addTwo(decoder);
    decoder.setManual();
    decoder.set("Alarm.Enabled", "no");
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    decoder.ctl({"alarm", "1", "fire"});
    decoder.ctl({"select", "0"}); // queued behind the alarm
    ASSERT_TRUE(decoder.waitForLog("adding event to queue (id=11"));
    EXPECT_EQ(decoder.countInLog("adding event to queue (id=8"), 0U);
    EXPECT_TRUE(decoder.showsMoving(0));
}

TEST(Lock, StopsPlayingUntilTenSecondsAfterTheLastLock) {
    Appliance decoder;
    addTwo(decoder);
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    auto last = Clock::now();
    for (std::size_t lock = 1; lock <= 3; ++lock) {
        last = Clock::now();
        EXPECT_EQ(decoder.ctl({"lock"}).status, 0);
        ASSERT_TRUE(decoder.waitForLog("adding event to queue (id=12", lock));
        ASSERT_TRUE(decoder.waitForState("LOCKED"));
        if (lock < 3) {
            appliance::pause(std::chrono::seconds(5));
        }
    }
    EXPECT_TRUE(decoder.players().empty());
    ASSERT_TRUE(decoder.waitForLog("LOCKED(5) -> FLUSH_CACHE(4)"));
    const double held = Seconds(Clock::now() - last).count();
    EXPECT_GE(held, 10);
    EXPECT_LE(held, 11.5);
    EXPECT_TRUE(decoder.showsMoving(0)) << "it connects again";
    EXPECT_EQ(decoder.countInLog("LOCKED(5) -> FLUSH_CACHE(4)"), 1U);
}

TEST(Lock, EndsAtReconnect) {
    Appliance decoder;
    addTwo(decoder);
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    decoder.ctl({"lock"});
    ASSERT_TRUE(decoder.waitForState("LOCKED"));
    EXPECT_TRUE(decoder.players().empty());
    decoder.ctl({"reconnect"});
    EXPECT_TRUE(decoder.showsMoving(0, Seconds(8)));
}

} // namespace

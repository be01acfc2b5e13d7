// SIGINT, and a player's end, are noticed while events keep coming.
#include "tests/appliance/appliance.h"
#include "tests/appliance/event_sender.h"
#include "tests/appliance/isolation.h"

#include <csignal>
#include <gtest/gtest.h>

namespace {

using appliance::Appliance;
using appliance::Flood;
using appliance::Seconds;

constexpr int barrier = 7;
constexpr int child = 2;
constexpr int connectPropertyChanged = 9;
constexpr int flushCache = 10;
constexpr int selectSource = 11;

// Generous for a loaded machine, and far less than any flood here lasts.
constexpr Seconds soon{15};

struct FloodTest : testing::Test {
    void SetUp() override {
        if (!appliance::isolate()) {
            GTEST_SKIP() << "no queues of its own to flood";
        }
    }
};

void expectSigintEndsIt(Appliance& decoder) {
    decoder.supervisor().signal(SIGINT);
    const std::optional<int> status = decoder.supervisor().waitForEnd(soon);
    ASSERT_TRUE(status.has_value()) << "SIGINT is not noticed";
    EXPECT_EQ(*status, 0);
}

TEST_F(FloodTest, OfSelectionsLetsSigintIn) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.setManual();
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    const Flood flood(decoder, selectSource, 0, std::chrono::microseconds(200));
    ASSERT_TRUE(decoder.waitForLog("-> SEND_ONLY_PTZ(8)", 200));
    expectSigintEndsIt(decoder);
}

TEST_F(FloodTest, OfSelectionsLetsAPlayersEndIn) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.setManual();
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    const int player = decoder.playerPid();
    const Flood flood(decoder, selectSource, 0, std::chrono::microseconds(200));
    ASSERT_TRUE(decoder.waitForLog("-> SEND_ONLY_PTZ(8)", 200));
    kill(player, SIGKILL);
    EXPECT_TRUE(decoder.waitForLog("-> CURRENT_PLAYER_CRASHED_DURING_PLAYING(7)", 1, soon));
}

TEST_F(FloodTest, OfPropertyChangesWhileDisconnectedLetsSigintIn) {
    Appliance decoder;
    decoder.set("Decoder.AutoConnect", "no");
    decoder.start();
    ASSERT_TRUE(decoder.waitForState("DISCONNECTED"));
    const Flood flood(decoder, connectPropertyChanged, 0, std::chrono::microseconds(500));
    ASSERT_TRUE(decoder.waitForLog("(id=9, ", 200));
    expectSigintEndsIt(decoder);
}

TEST_F(FloodTest, OfFlushesLetsSigintIn) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.setManual();
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    const int queue = appliance::eventQueue(decoder);
    for (int i = 0; i < 250; ++i) {
        appliance::sendRaw(queue, flushCache);
    }
    expectSigintEndsIt(decoder);
}

// 256 of them fill the internal queue.
TEST_F(FloodTest, OfForgedArrivalsDoesNotHideAPlayers) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.addEncoder("Garage");
    decoder.setManual();
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    const int queue = appliance::eventQueue(decoder);
    for (int i = 0; i < 300; ++i) {
        while (!appliance::sendRaw(queue, barrier, 4000000 + i, 0)) {
            appliance::pause(std::chrono::milliseconds(1));
        }
    }
    ASSERT_TRUE(appliance::eventually([] { return appliance::queuedMessages() == 0; }));
    EXPECT_EQ(decoder.ctl({"select", "1"}).status, 0);
    EXPECT_TRUE(decoder.showsMoving(1));
    EXPECT_TRUE(decoder.waitForSource(1));
}

TEST_F(FloodTest, OfForgedExitsDoesNotHideAPlayers) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.setManual();
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    const int player = decoder.playerPid();
    const int queue = appliance::eventQueue(decoder);
    for (int i = 0; i < 300; ++i) {
        while (!appliance::sendRaw(queue, child, 4000000 + i, 0)) {
            appliance::pause(std::chrono::milliseconds(1));
        }
    }
    kill(player, SIGKILL);
    EXPECT_TRUE(decoder.waitForLog("-> CURRENT_PLAYER_CRASHED_DURING_PLAYING(7)", 1, soon));
}

} // namespace

// SIGINT and a player's end are noticed while events keep coming, and a lost event queue is made again.
#include "tests/appliance/appliance.h"
#include "tests/appliance/event_sender.h"
#include "tests/appliance/isolation.h"

#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/msg.h>

namespace {

using appliance::Appliance;
using appliance::Flood;
using appliance::Seconds;

constexpr int barrier = 7;
constexpr int child = 2;
constexpr int connectPropertyChanged = 9;
constexpr int flushCache = 10;
constexpr int selectSource = 11;

constexpr std::chrono::microseconds atOnce{1};

// Long enough for a loaded machine, and much shorter than any flood here.
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

TEST_F(FloodTest, OfSelectionsDoesNotDelaySigint) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.setManual();
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    const Flood one(decoder, selectSource, 0, atOnce);
    const Flood two(decoder, selectSource, 0, atOnce);
    ASSERT_TRUE(decoder.waitForLog("event queue full id=11"));
    expectSigintEndsIt(decoder);
}

TEST_F(FloodTest, OfSelectionsDoesNotHideThePlayersEnd) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.setManual();
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    const int player = decoder.playerPid();
    const Flood one(decoder, selectSource, 0, atOnce);
    const Flood two(decoder, selectSource, 0, atOnce);
    ASSERT_TRUE(decoder.waitForLog("event queue full id=11"));
    kill(player, SIGKILL);
    EXPECT_TRUE(decoder.waitForLog("-> CURRENT_PLAYER_CRASHED_DURING_PLAYING(7)", 1, soon));
}

TEST_F(FloodTest, OfPropertyChangesWhileDisconnectedDoesNotDelaySigint) {
    Appliance decoder;
    decoder.set("Decoder.AutoConnect", "no");
    decoder.start();
    ASSERT_TRUE(decoder.waitForState("DISCONNECTED"));
    const Flood flood(decoder, connectPropertyChanged, 0, std::chrono::microseconds(500));
    ASSERT_TRUE(decoder.waitForLog("(id=9, ", 200));
    expectSigintEndsIt(decoder);
}

TEST_F(FloodTest, OfFlushesDoesNotDelaySigint) {
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

TEST_F(FloodTest, OfForgedArrivalsDoesNotHideARealOne) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.addEncoder("Garage");
    decoder.setManual();
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    const Flood flood(decoder, barrier, 4000000, atOnce);
    ASSERT_TRUE(decoder.waitForLog("event queue full id=7"));
    EXPECT_EQ(decoder.ctl({"select", "1"}).status, 0);
    EXPECT_TRUE(decoder.showsMoving(1));
    EXPECT_TRUE(decoder.waitForSource(1));
}

TEST_F(FloodTest, OfForgedExitsDoesNotHideARealOne) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.setManual();
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    const int player = decoder.playerPid();
    const Flood one(decoder, child, 4000000, atOnce);
    const Flood two(decoder, child, 4000000, atOnce);
    ASSERT_TRUE(decoder.waitForLog("event queue full id=2"));
    kill(player, SIGKILL);
    EXPECT_TRUE(decoder.waitForLog("-> CURRENT_PLAYER_CRASHED_DURING_PLAYING(7)", 1, soon));
}

// ---- The appliance's queue is gone.

TEST(LostQueue, RemovedWhileItRunsIsMadeAgain) {
    if (!appliance::isolate()) {
        GTEST_SKIP() << "no queues of its own to remove";
    }
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.addEncoder("Garage");
    decoder.setManual();
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    const int queue = appliance::eventQueue(decoder);
    ASSERT_EQ(msgctl(queue, IPC_RMID, nullptr), 0);
    ASSERT_TRUE(appliance::eventually([&] { return appliance::eventQueue(decoder) != queue; }));
    EXPECT_EQ(decoder.ctl({"select", "1"}).status, 0);
    EXPECT_TRUE(decoder.showsMoving(1));
    EXPECT_TRUE(decoder.waitForSource(1));
}

constexpr const char* mostQueues = "/proc/sys/kernel/msgmni";

TEST(LostQueue, ThatCannotBeMadeAtTheStartIsMadeLater) {
    if (!appliance::isolate()) {
        GTEST_SKIP() << "no queues of its own to forbid";
    }
    const std::string before = appliance::readFile(mostQueues);
    std::ofstream(mostQueues) << "0\n";
    if (appliance::readFile(mostQueues) != "0\n") {
        GTEST_SKIP() << mostQueues << " can't be written here";
    }
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.set("Decoder.AutoConnect", "no");
    decoder.start();
    EXPECT_TRUE(decoder.waitForState("DISCONNECTED"));
    EXPECT_NE(decoder.ctl({"select", "0"}).status, 0);
    std::ofstream(mostQueues) << before;
    EXPECT_TRUE(appliance::eventually([&] { return decoder.ctl({"select", "0"}).status == 0; }));
    EXPECT_TRUE(decoder.showsMoving(0));
}

} // namespace

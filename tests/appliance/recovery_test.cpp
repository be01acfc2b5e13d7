// Players and encoders that die: what the user sees, and the recovery. kill_test covers every state.
#include "tests/appliance/holding.h"

#include <csignal>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using appliance::Appliance;
using appliance::eventually;
using appliance::Frozen;
using appliance::newPlayer;

// Lets the held player run until its announcement is in the queue of the frozen supervisor.
void letItAnnounce(Appliance& decoder) {
    appliance::awaitAnnouncement([&] { decoder.releasePlayers(); });
}

void addTwo(Appliance& decoder) {
    decoder.addEncoder("Front door");
    decoder.addEncoder("Garage");
    decoder.setManual();
}

// ---- The only player

TEST(PlayerDies, WhileItShows) {
    Appliance decoder;
    addTwo(decoder);
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    ASSERT_TRUE(decoder.waitForState("MANUAL_WAIT_FOR_NEW_SELECTION"));
    const int player = decoder.playerPid();
    kill(player, SIGKILL);
    EXPECT_TRUE(decoder.waitForLog("Player crashed due to an uncaught signal. signo=9"));
    EXPECT_TRUE(decoder.waitForLog("-> CURRENT_PLAYER_CRASHED_DURING_PLAYING(7)"));
    EXPECT_TRUE(decoder.waitForText(0, "No connection to encoder Front door"));
    EXPECT_EQ(decoder.sourceValue(0, "ErrorCode"), "29");
    EXPECT_EQ(decoder.status()["frame"]["blank"], true);
    EXPECT_TRUE(decoder.showsMoving(0)) << "the source is tried again after four seconds";
    EXPECT_NE(decoder.playerPid(), player);
}

TEST(PlayerDies, WhileItShowsInTheSequence) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    ASSERT_TRUE(decoder.waitForState("AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT"));
    kill(decoder.playerPid(), SIGKILL);
    EXPECT_TRUE(decoder.waitForState("AUTO_WAIT_ERROR_SLEEP_EVENT"));
    decoder.ctl({"button"}); // dropped
    EXPECT_TRUE(decoder.showsMoving(0));
    EXPECT_EQ(decoder.countInLog("-> AUTO_GOTO_NEXT_SOURCE(39)"), 0U);
    EXPECT_EQ(decoder.countInLog("AUTO_CHECK_FOR_TIME_LEFT_RECONNECT(42) -> REQUEST_ENCODER_TYPE(6)"), 1U);
}

TEST(PlayerDies, BeforeItsFirstBarrier) {
    Appliance decoder;
    addTwo(decoder);
    decoder.holdPlayers();
    decoder.start();
    ASSERT_TRUE(decoder.waitForState("WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING"));
    kill(newPlayer(decoder), SIGKILL);
    EXPECT_TRUE(decoder.waitForLog("-> COULD_NOT_LAUNCH_PENDING_PLAYER(27)"));
    EXPECT_TRUE(decoder.waitForState("MANUAL_WAIT_ERROR_SLEEP_EVENT"));
    EXPECT_TRUE(decoder.waitForText(0, "No connection to encoder Front door"));
    EXPECT_EQ(decoder.sourceValue(0, "ErrorCode"), "29");
    decoder.releasePlayers();
    decoder.ctl({"select", "1"});
    EXPECT_TRUE(decoder.showsMoving(1));
}

TEST(PlayerDies, AtItsFirstBarrier) {
    Appliance decoder;
    addTwo(decoder);
    decoder.holdPlayers();
    decoder.start();
    ASSERT_TRUE(decoder.waitForState("WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING"));
    const int player = newPlayer(decoder);
    {
        const Frozen frozen(decoder);
        letItAnnounce(decoder);
        kill(player, SIGKILL);
    }
    EXPECT_TRUE(decoder.waitForLog("-> COULD_NOT_LAUNCH_PENDING_PLAYER(27)"));
    decoder.ctl({"select", "1"});
    EXPECT_TRUE(decoder.showsMoving(1));
}

// ---- Two players

class Switching : public testing::Test {
protected:
    // The first source shows. The second one's player is held at its start.
    void SetUp() override {
        addTwo(decoder);
        decoder.start();
        ASSERT_TRUE(decoder.showsMoving(0));
        ASSERT_TRUE(decoder.waitForState("MANUAL_WAIT_FOR_NEW_SELECTION"));
        current = decoder.playerPid();
        decoder.holdPlayers();
        decoder.ctl({"select", "1"});
        ASSERT_TRUE(decoder.waitForState("WAIT_LAUNCHED_PENDING_PLAYER"));
        pending = newPlayer(decoder, current);
        ASSERT_GT(pending, 0);
    }

    // The pending player has announced barrier 0. The supervisor waits for both players at barrier 1.
    void reachSecondBarrier(int stopped) {
        {
            const Frozen frozen(decoder);
            letItAnnounce(decoder);
            appliance::stop(stopped);
        }
        ASSERT_TRUE(decoder.waitForState("WAIT_SHUTDOWN_CURRENT_PLAYER"));
    }

    Appliance decoder;
    int current = -1;
    int pending = -1;
};

TEST_F(Switching, PendingDiesBeforeItsFirstBarrier) {
    const std::int64_t blanked = decoder.screen().blankedAt();
    kill(pending, SIGKILL);
    EXPECT_TRUE(decoder.waitForLog("-> COULD_NOT_LAUNCH_PENDING_PLAYER(27)"));
    EXPECT_TRUE(decoder.waitForState("MANUAL_WAIT_ERROR_SLEEP_EVENT"));
    EXPECT_TRUE(decoder.showsMoving(0)) << "the current player keeps showing";
    EXPECT_EQ(decoder.playerPid(), current);
    EXPECT_EQ(decoder.screen().blankedAt(), blanked);
    EXPECT_EQ(decoder.sourceValue(1, "ErrorCode"), "29");
}

TEST_F(Switching, CurrentDiesBeforeThePendingsFirstBarrier) {
    kill(current, SIGKILL);
    EXPECT_TRUE(decoder.waitForLog("Current player exited during pending launch"));
    EXPECT_EQ(decoder.currentSource(), -1);
    decoder.releasePlayers();
    EXPECT_TRUE(decoder.showsMoving(1));
    EXPECT_EQ(decoder.playerPid(), pending);
}

TEST_F(Switching, BothDieAtTheSecondBarrier) {
    reachSecondBarrier(pending);
    {
        const Frozen frozen(decoder);
        kill(pending, SIGKILL);
        kill(current, SIGKILL);
    }
    EXPECT_TRUE(decoder.waitForState("MANUAL_WAIT_ERROR_SLEEP_EVENT"));
    decoder.ctl({"select", "0"});
    EXPECT_TRUE(decoder.showsMoving(0));
}

// ---- Encoders

TEST(EncoderDies, IsTriedAgainUntilItIsBack) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.setManual();
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    decoder.encoder(0).kill();
    EXPECT_TRUE(decoder.waitForText(0, "No connection to encoder Front door"));
    EXPECT_TRUE(eventually([&] { return decoder.players().empty(); }));
    decoder.encoder(0).again();
    EXPECT_TRUE(decoder.showsMoving(0));
    EXPECT_TRUE(eventually([&] { return decoder.text(0).empty(); }));
}

TEST(EncoderDies, WhileTheSequenceIsPaused) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.addEncoder("Garage");
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    ASSERT_TRUE(decoder.waitForState("AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT"));
    decoder.ctl({"button"});
    ASSERT_TRUE(decoder.waitForState("AUTO_PAUSE"));
    decoder.encoder(0).kill();
    EXPECT_TRUE(decoder.waitForLog("-> CURRENT_PLAYER_CRASHED_DURING_PAUSE(44)"));
    EXPECT_TRUE(decoder.waitForText(0, "No connection to encoder Front door"));
    decoder.encoder(0).again();
    EXPECT_TRUE(decoder.showsMoving(0)) << "the paused source is tried again, not the next one";
    EXPECT_TRUE(decoder.waitForState("AUTO_PAUSE"));
    EXPECT_TRUE(decoder.waitForText(1, "Sequence paused"));
}

TEST(EncoderFreezes, IsDetectedAndTriedAgain) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.setManual();
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    decoder.encoder(0).process().signal(SIGSTOP);
    EXPECT_TRUE(decoder.waitForLog("Player exited due to end of stream."));
    EXPECT_EQ(decoder.sourceValue(0, "ErrorCode"), "23");
    decoder.encoder(0).process().signal(SIGCONT);
    EXPECT_TRUE(decoder.showsMoving(0));
}

} // namespace

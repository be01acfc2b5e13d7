// Players and encoders that die, at every point where they can.
#include "tests/appliance/appliance.h"
#include "tests/appliance/isolation.h"

#include <csignal>
#include <gtest/gtest.h>

namespace {

using appliance::Appliance;
using appliance::eventually;

// Stops the supervisor (not its players), so that a test can bring the others into position.
class Frozen {
public:
    explicit Frozen(Appliance& decoder) : decoder_(decoder) { decoder_.supervisor().signal(SIGSTOP); }
    ~Frozen() { decoder_.supervisor().signal(SIGCONT); }
    Frozen(const Frozen&) = delete;
    Frozen& operator=(const Frozen&) = delete;

private:
    Appliance& decoder_;
};

int playerOtherThan(const Appliance& decoder, int pid) {
    for (const int player : decoder.players()) {
        if (player != pid) {
            return player;
        }
    }
    return -1;
}

// The only player, held at its very start.
int heldPlayer(Appliance& decoder, int otherThan = -1) {
    eventually([&] { return playerOtherThan(decoder, otherThan) > 0; });
    return playerOtherThan(decoder, otherThan);
}

// Lets the held player run until its announcement waits in the frozen supervisor's queue.
void letItAnnounce(Appliance& decoder) {
    const int before = appliance::queuedMessages();
    decoder.releasePlayers();
    ASSERT_TRUE(eventually([&] { return appliance::queuedMessages() > before; }));
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
    EXPECT_TRUE(decoder.showsMoving(0)) << "it is tried again after four seconds";
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
    EXPECT_TRUE(decoder.showsMoving(0));
}

TEST(PlayerDies, BeforeItsFirstBarrier) {
    Appliance decoder;
    addTwo(decoder);
    decoder.holdPlayers();
    decoder.start();
    ASSERT_TRUE(decoder.waitForState("WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING"));
    kill(heldPlayer(decoder), SIGKILL);
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
    const int player = heldPlayer(decoder);
    {
        const Frozen frozen(decoder);
        letItAnnounce(decoder);
        kill(player, SIGKILL);
    }
    EXPECT_TRUE(decoder.waitForLog("-> COULD_NOT_LAUNCH_PENDING_PLAYER(27)"));
    decoder.ctl({"select", "1"});
    EXPECT_TRUE(decoder.showsMoving(1));
}

TEST(PlayerDies, BetweenItsTwoBarriers) {
    Appliance decoder;
    addTwo(decoder);
    decoder.holdPlayers();
    decoder.start();
    ASSERT_TRUE(decoder.waitForState("WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING"));
    const int player = heldPlayer(decoder);
    {
        const Frozen frozen(decoder);
        letItAnnounce(decoder);
        kill(player, SIGSTOP);
    }
    ASSERT_TRUE(decoder.waitForState("SINGLE_PLAYER_LAUNCHED"));
    kill(player, SIGKILL);
    EXPECT_TRUE(decoder.waitForLog("-> COULD_NOT_LAUNCH_PENDING_PLAYER(27)"));
    decoder.ctl({"select", "1"});
    EXPECT_TRUE(decoder.showsMoving(1));
}

// ---- Two players

class Switching : public testing::Test {
protected:
    // The first source shows; the second one's player is held at its start.
    void SetUp() override {
        addTwo(decoder);
        decoder.start();
        ASSERT_TRUE(decoder.showsMoving(0));
        ASSERT_TRUE(decoder.waitForState("MANUAL_WAIT_FOR_NEW_SELECTION"));
        current = decoder.playerPid();
        decoder.holdPlayers();
        decoder.ctl({"select", "1"});
        ASSERT_TRUE(decoder.waitForState("WAIT_LAUNCHED_PENDING_PLAYER"));
        pending = heldPlayer(decoder, current);
        ASSERT_GT(pending, 0);
    }

    // The pending player has announced its first barrier to a supervisor that waits for both at the second.
    void reachSecondBarrier(int stopped) {
        {
            const Frozen frozen(decoder);
            letItAnnounce(decoder);
            kill(stopped, SIGSTOP);
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
    EXPECT_TRUE(decoder.showsMoving(0)) << "the current player goes on";
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

TEST_F(Switching, PendingDiesAtTheSecondBarrier) {
    reachSecondBarrier(pending);
    kill(pending, SIGKILL);
    EXPECT_TRUE(decoder.waitForLog("-> PENDING_PLAYER_CRASHED_STOPPING_CURRENT(33)"));
    EXPECT_TRUE(decoder.waitForLog("-> BOTH_PLAYERS_DOWN_AFTER_PENDING_CRASH(35)"));
    EXPECT_TRUE(decoder.waitForState("MANUAL_WAIT_ERROR_SLEEP_EVENT"));
    EXPECT_TRUE(decoder.players().empty());
    decoder.ctl({"select", "0"});
    EXPECT_TRUE(decoder.showsMoving(0));
}

TEST_F(Switching, CurrentDiesAtTheSecondBarrier) {
    reachSecondBarrier(current);
    kill(current, SIGKILL);
    EXPECT_TRUE(decoder.waitForLog("-> CURRENT_PLAYER_CRASHED_DURING_SWITCH(32)"));
    EXPECT_TRUE(decoder.showsMoving(1));
    EXPECT_EQ(decoder.playerPid(), pending);
    EXPECT_TRUE(decoder.waitForSource(1));
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

TEST(EncoderDies, AndComesBack) {
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
    EXPECT_TRUE(decoder.showsMoving(0)) << "the paused source comes back, not the next one";
    EXPECT_TRUE(decoder.waitForState("AUTO_PAUSE"));
    EXPECT_TRUE(decoder.waitForText(1, "Sequence paused"));
}

TEST(EncoderFreezes, IsNoticedAndTriedAgain) {
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

// How the supervisor ends, and what the next one finds.
#include "tests/appliance/appliance.h"
#include "tests/appliance/isolation.h"

#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>

namespace {

using appliance::Appliance;

class Shutdown : public testing::TestWithParam<int> {};

void expectOrderlyEnd(Appliance& decoder, int signal) {
    EXPECT_EQ(decoder.stop(signal), 0);
    const std::string log = decoder.log();
    std::size_t at = 0;
    std::vector<std::string> lines{
        "[SHUTDOWN] Skelmor shutdown started!!!",  "[SHUTDOWN] Sending SIGINT to children...",
        "[SHUTDOWN] All children dead...",         "[SHUTDOWN] Removing barriers...",
        "[SHUTDOWN] Shutting down event queue...", "[SHUTDOWN] Closing log system..."};
    if (signal == SIGSEGV) {
        lines.insert(lines.begin(), "Skelmor received SIGSEGV. Shutting down and respawning!");
    }
    for (const std::string& line : lines) {
        at = log.find(line, at);
        ASSERT_NE(at, std::string::npos) << line;
    }
}

TEST_P(Shutdown, WithoutAPlayer) {
    Appliance decoder;
    decoder.set("Decoder.AutoConnect", "no");
    decoder.start();
    ASSERT_TRUE(decoder.waitForState("DISCONNECTED"));
    expectOrderlyEnd(decoder, GetParam());
}

TEST_P(Shutdown, WithOnePlayer) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    expectOrderlyEnd(decoder, GetParam());
    EXPECT_TRUE(decoder.players().empty());
}

TEST_P(Shutdown, WithTwoPlayers) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.addEncoder("Garage");
    decoder.setManual();
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    decoder.holdPlayers();
    decoder.ctl({"select", "1"});
    ASSERT_TRUE(decoder.waitForState("WAIT_LAUNCHED_PENDING_PLAYER"));
    ASSERT_TRUE(appliance::eventually([&] { return decoder.players().size() == 2; }));
    expectOrderlyEnd(decoder, GetParam());
    EXPECT_TRUE(decoder.players().empty());
}

INSTANTIATE_TEST_SUITE_P(By, Shutdown, testing::Values(SIGINT, SIGSEGV),
                         [](const auto& value) { return value.param == SIGINT ? "SIGINT" : "SIGSEGV"; });

TEST(Respawn, StartsAgainAfterEveryEnd) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    EXPECT_EQ(decoder.stop(SIGSEGV), 0);
    decoder.start();
    EXPECT_TRUE(decoder.showsMoving(0));
}

TEST(Respawn, RemovesWhatAKilledSupervisorLeft) {
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    const int player = decoder.playerPid();
    EXPECT_EQ(decoder.stop(SIGKILL), -1);
    EXPECT_TRUE(appliance::eventually([&] { return decoder.players().empty(); }))
        << "a player ends with its supervisor";
    const std::string barrier = decoder.root() + "/var/tmp/barrier." + std::to_string(player);
    ASSERT_TRUE(std::filesystem::exists(barrier));
    decoder.start();
    EXPECT_TRUE(
        decoder.waitForLog("Found sprawling barrier. Removing barrier for PID " + std::to_string(player)));
    EXPECT_TRUE(decoder.showsMoving(0));
    EXPECT_FALSE(std::filesystem::exists(barrier));
}

TEST(StartUp, MissingButtonFileEndsTheSupervisorWithStatusOne) {
    Appliance decoder;
    std::filesystem::remove(decoder.root() + "/proc/sys/dev/button_videoselect");
    decoder.set("Decoder.AutoConnect", "no");
    decoder.start();
    const std::optional<int> status = decoder.supervisor().waitForEnd();
    ASSERT_TRUE(status.has_value());
    EXPECT_TRUE(WIFEXITED(*status));
    EXPECT_EQ(WEXITSTATUS(*status), 1);
    EXPECT_NE(appliance::readFile(decoder.root() + "/var/log/output").find("Failed to open\n"),
              std::string::npos);
    // Kept: this exit removes nothing, so the queue stays for the next start.
    decoder.forgetQueues();
}

} // namespace

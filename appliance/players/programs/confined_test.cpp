// Players give up their rights: one that plays, and one that was taken over and tries what it must not do.
#include "appliance/players/testing/fake_supervisor.h"
#include "appliance/players/testing/test_pictures.h"

#include "tests/appliance/isolation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <linux/landlock.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace player {
namespace {

namespace fs = std::filesystem;

using scripted::Server;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

int landlockVersion() {
    return static_cast<int>(
        syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION));
}

std::string statusOf(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/status");
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

class ConfinedPlayer : public testing::Test {
protected:
    ConfinedPlayer() : isolated_(appliance::isolate()) {
        for (const char* path :
             {"/etc/decoder/panel.accounts", "/etc/decoder/panel.tokens", "/etc/decoder/panel-key.pem",
              "/run/decoder/info.conf", "/run/decoder/panel/link", "/run/decoder/source/7/Reason",
              "/run/decoder/skelmor.lock", "/run/decoder/display/0", "/var/tmp/barrier.1",
              "/proc/sys/dev/button_videoselect"})
            put(path, "[Some]\nText = secret\n");
        put("/etc/decoder/decoder.conf", "[Encoder.Yard]\nPassword = secret\n");
    }
    static void put(const std::string& path, const std::string& text) {
        fs::create_directories(fs::path(FakeSupervisor::root() + path).parent_path());
        std::ofstream(FakeSupervisor::root() + path) << text;
    }
    static std::vector<std::string> arguments(const Server& server) {
        return {"-m",       "pal", "-o", "tv", "-n", "3", "-r", "10000", "-P", std::to_string(server.port()),
                "127.0.0.1"};
    }

    const bool isolated_;
    FakeSupervisor supervisor_;
};

TEST_F(ConfinedPlayer, ThatWasTakenOverGetsNowhere) {
    if (landlockVersion() < 1)
        GTEST_SKIP() << "this kernel has no Landlock";
    const Server encoder({scripted::stall()});
    const Server panel({scripted::stall()});
    const int other = msgget(IPC_PRIVATE, 0600);
    setenv("TRY_QUEUE", std::to_string(other).c_str(), 1);
    constexpr int withPorts = 4;
    if (landlockVersion() >= withPorts)
        setenv("TRY_PORT", std::to_string(panel.port()).c_str(), 1);
    const pid_t pid = supervisor_.start(HIJACKED_PLAYER, arguments(encoder));
    EXPECT_EQ(supervisor_.end(pid), 0) << FakeSupervisor::log();
    EXPECT_THAT(FakeSupervisor::log(),
                AllOf(Not(HasSubstr("not refused")), Not(HasSubstr("refused, but needed"))));
    EXPECT_TRUE(supervisor_.hasArrived(pid, 0)) << "it announced itself";
    msgctl(other, IPC_RMID, nullptr);
}

// The other tests of the players and of whole decoders run under the same confinement, with every kind of stream.
TEST_F(ConfinedPlayer, PlaysWithoutRightsInEveryThread) {
    const Server encoder(pictureStream(3, 500));
    const pid_t pid = supervisor_.start(PLAYER, arguments(encoder));
    ASSERT_TRUE(supervisor_.letShow(pid)) << FakeSupervisor::log();
    int threads = 0;
    for (const auto& task : fs::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
        std::ifstream file(task.path() / "status");
        const std::string status{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        EXPECT_THAT(status, AllOf(HasSubstr("NoNewPrivs:\t1\n"), HasSubstr("Seccomp:\t2\n")));
        ++threads;
    }
    EXPECT_GT(threads, 1);
    kill(pid, SIGTERM);
    EXPECT_EQ(supervisor_.end(pid), 0);
}

TEST_F(ConfinedPlayer, KeepsItsRightsWhenTheParameterSaysSo) {
    FakeSupervisor::setParameters("[Player]\nConfined = no\n");
    const Server encoder(pictureStream(3, 500));
    const pid_t pid = supervisor_.start(PLAYER, arguments(encoder));
    ASSERT_TRUE(supervisor_.letShow(pid)) << FakeSupervisor::log();
    EXPECT_THAT(statusOf(pid), HasSubstr("Seccomp:\t0\n"));
    kill(pid, SIGTERM);
    EXPECT_EQ(supervisor_.end(pid), 0);
}

} // namespace
} // namespace player

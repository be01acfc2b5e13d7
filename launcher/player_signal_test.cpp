#include "launcher/player_signal.h"

#include "tests/fakes/fake_libcommon.h"

#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>

namespace {

// Replaces kill(2): no real signal is sent here.
std::vector<std::pair<int, int>> signals;
int killErrno = 0;

struct PlayerSignal : testing::Test {
    PlayerSignal() {
        fake::reset();
        signals.clear();
        killErrno = 0;
    }
};

} // namespace

extern "C" int kill(pid_t pid, int signo) noexcept {
    signals.emplace_back(pid, signo);
    errno = killErrno;
    return killErrno == 0 ? 0 : -1;
}

TEST_F(PlayerSignal, GoesToThePlayer) {
    signalPlayer(4711, SIGHUP);
    EXPECT_EQ(signals, (std::vector<std::pair<int, int>>{{4711, 1}}));
    EXPECT_TRUE(fake::log.empty());
}

TEST_F(PlayerSignal, NeverGoesToAWholeGroupOfProcesses) {
    for (const int pid : {-1, 0, -100})
        signalPlayer(pid, SIGHUP);
    EXPECT_TRUE(signals.empty());
    EXPECT_TRUE(fake::logged(3, "There is no player with pid -1 to send signal 1 to"));
    EXPECT_EQ(fake::log.size(), 3U);
}

TEST_F(PlayerSignal, APlayerThatHasEndedIsNoError) {
    killErrno = ESRCH;
    signalPlayer(4711, SIGHUP);
    EXPECT_TRUE(fake::log.empty());
}

TEST_F(PlayerSignal, AnyOtherFailureIsLogged) {
    killErrno = EPERM;
    signalPlayer(4711, SIGHUP);
    EXPECT_TRUE(fake::logged(3, "Could not send signal 1 to player 4711 (errno=1 Operation not permitted)"));
}

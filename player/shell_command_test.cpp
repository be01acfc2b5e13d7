#include "player/shell_command.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>

namespace {

void countNothing(int) {}

sigset_t only(int signo) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signo);
    return set;
}

bool isPending(int signo) {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, signo) == 1;
}

TEST(ShellCommand, GivesTheWaitStatus) {
    EXPECT_EQ(runShellCommand("exit 7"), 7 << 8);
    EXPECT_EQ(runShellCommand("true"), 0);
    EXPECT_EQ(runShellCommand("kill -KILL $$"), SIGKILL);
    EXPECT_EQ(WEXITSTATUS(runShellCommand("no-such-command-anywhere 2>/dev/null")), 127);
}

TEST(ShellCommand, RunsWithNoSignalBlocked) {
    sigset_t all;
    sigset_t saved;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, &saved);
    const int status = runShellCommand("grep -q '^SigBlk:[[:space:]]*0*$' /proc/self/status");
    sigprocmask(SIG_SETMASK, &saved, nullptr);
    EXPECT_EQ(status, 0);
}

TEST(ShellCommand, InterruptThatComesMeanwhileIsNotLost) {
    const sigset_t interrupt = only(SIGINT);
    std::signal(SIGINT, countNothing);
    sigprocmask(SIG_BLOCK, &interrupt, nullptr);
    EXPECT_EQ(runShellCommand("kill -INT $PPID"), 0);
    EXPECT_TRUE(isPending(SIGINT));
    struct sigaction action {};
    sigaction(SIGINT, nullptr, &action);
    EXPECT_EQ(action.sa_handler, countNothing);
    sigprocmask(SIG_UNBLOCK, &interrupt, nullptr);
    std::signal(SIGINT, SIG_DFL);
}

TEST(ShellCommand, WaitGoesOnAfterAHandlerRan) {
    struct sigaction action {};
    struct sigaction saved {};
    action.sa_handler = countNothing; // without SA_RESTART: waitpid is interrupted
    sigaction(SIGUSR2, &action, &saved);
    EXPECT_EQ(runShellCommand("for i in 1 2 3 4 5 6 7 8 9; do kill -USR2 $PPID; done; exit 3"), 3 << 8);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "no zombie is left";
    sigaction(SIGUSR2, &saved, nullptr);
}

TEST(ShellCommand, FailureToStartIsMinusOneWithErrno) {
    const std::string tooLong(4 << 20, 'x'); // longer than the kernel accepts for one argument
    errno = 0;
    EXPECT_EQ(runShellCommand(tooLong.c_str()), -1);
    EXPECT_EQ(errno, E2BIG);
}

} // namespace

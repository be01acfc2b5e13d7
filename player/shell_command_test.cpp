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

TEST(ShellCommand, InterruptIsLetInWhileTheCommandRuns) {
    const sigset_t interrupt = only(SIGINT);
    static volatile std::sig_atomic_t handled;
    handled = 0;
    std::signal(SIGINT, [](int) { handled = handled + 1; });
    sigprocmask(SIG_BLOCK, &interrupt, nullptr);
    EXPECT_EQ(runShellCommand("kill -INT $PPID; exit 3"), 3 << 8) << "a handler that returns changes nothing";
    EXPECT_EQ(handled, 1);
    raise(SIGINT); // pending from before
    EXPECT_EQ(handled, 1);
    EXPECT_EQ(runShellCommand("true"), 0);
    EXPECT_EQ(handled, 2);
    sigset_t mask;
    sigprocmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGINT), 1) << "blocked again";
    sigprocmask(SIG_UNBLOCK, &interrupt, nullptr);
    std::signal(SIGINT, SIG_DFL);
}

TEST(ShellCommand, WaitContinuesAfterAHandlerRan) {
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

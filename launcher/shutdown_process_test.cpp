// The shutdown with real signals, real players and real waits.
#include "launcher/shutdown.h"

#include "events/event_queue.h"
#include "events/taker_probe.h"
#include "player/children.h"
#include "process/process_state.h"
#include "process/signal_mask.h"
#include "tests/fakes/fake_barrier_table.h"
#include "tests/support/child_run.h"

#include <csignal>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

// Starts a player that writes its name and the signal for each signal it gets, and ends at the signal it obeys.
int startPlayer(char name, int obeys) {
    int ready[2];
    if (pipe(ready) != 0)
        return -1;
    const pid_t pid = fork();
    if (pid == 0) {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGINT);
        sigaddset(&set, SIGTERM);
        pthread_sigmask(SIG_SETMASK, &set, nullptr);
        for (char go = 'x'; write(ready[1], &go, 1) != 1;) {
        }
        for (int signo = 0; signo != obeys;) {
            sigwait(&set, &signo);
            const std::string line = std::string(1, name) + (signo == SIGINT ? " INT\n" : " TERM\n");
            if (write(STDERR_FILENO, line.data(), line.size()) < 0)
                _exit(1);
        }
        _exit(0);
    }
    char went = 0;
    if (read(ready[0], &went, 1) != 1)
        return -1;
    return pid;
}

// Reports what the supervisor did before its end.
void report(const char* how) {
    std::string text = how;
    for (const fake::LogLine& line : fake::log)
        if (line.text.starts_with("[SHUTDOWN]") || line.level == 3)
            text += "\n" + line.text;
    for (const std::string& call : fake::calls)
        if (call.starts_with("remove"))
            text += "\n" + call;
    // Are the players reaped?
    text += waitpid(-1, nullptr, WNOHANG) == -1 ? "\nno children\n" : "\nchildren left\n";
    std::fputs(text.c_str(), stderr);
}

bool reporting = false; // in the child that shuts down

// An ordinary end reports "exit", a crash "_exit".
void reportAtExit() {
    reporting = true;
    std::atexit([] {
        reporting = false;
        report("exit");
    });
}

// Sleeps in the event queue until a signal ends the process.
[[noreturn]] void sleepInTheQueue() {
    for (;;) {
        Event out{};
        getNextEvent(&out, SKIP_OTHERS);
    }
}

const std::string ending = "exit\n"
                           "[SHUTDOWN] Skelmor shutdown started!!!\n"
                           "[SHUTDOWN] Sending SIGINT to children...\n"
                           "[SHUTDOWN] All children dead...\n"
                           "[SHUTDOWN] Removing barriers...\n"
                           "[SHUTDOWN] Shutting down event queue...\n"
                           "[SHUTDOWN] Closing log system...\n";

int depth(int level) {
    volatile char frame[4096];
    frame[0] = static_cast<char>(level);
    return level == 0 ? 0 : depth(level + 1) + frame[0];
}

} // namespace

extern "C" void _exit(int status) {
    if (reporting)
        report("_exit");
    for (;;)
        syscall(SYS_exit_group, status);
}

TEST(ShutdownProcess, SigintDuringABlockingTakeStopsBothPlayersInOrder) {
    const ChildRun run = runInChild([] {
        installShutdownHandler();
        blockSignalsWhileWorking();
        installChildReaper();
        process.currentPID = startPlayer('c', SIGINT);
        process.pendingPID = startPlayer('p', SIGTERM); // ignores SIGINT
        addChild(process.currentPID);
        addChild(process.pendingPID);
        reportAtExit();
        kill(getpid(), SIGINT);
        sleepInTheQueue();
    });
    EXPECT_TRUE(run.exitedWith(0)) << run.waitStatus;
    std::string players = run.err.substr(0, run.err.find("exit"));
    EXPECT_EQ(players, "c INT\np INT\np TERM\n");
    // Whether the reaper cuts a sleep short depends on how fast the player ends.
    EXPECT_THAT(run.out,
                testing::MatchesRegex("uslret = -?[01] errno=[0-9]+\nuslret = -?[01] errno=[0-9]+\n"));
    EXPECT_NE(run.err.find("no children\n"), std::string::npos) << run.err;
}

TEST(ShutdownProcess, SigintInTheMiddleOfTheSleepEndsTheProcess) {
    const ChildRun run = runInChild([] {
        installShutdownHandler();
        blockSignalsWhileWorking();
        reportAtExit();
        std::thread([] {
            blockAllSignals();
            untilTakerSleeps();
            kill(getpid(), SIGINT);
        }).detach();
        sleepInTheQueue();
    });
    EXPECT_TRUE(run.exitedWith(0)) << run.waitStatus;
    EXPECT_EQ(run.err, ending + "removeEventQueue()\nno children\n");
}

TEST(ShutdownProcess, ACrashInTheMiddleOfWorkEndsTheProcessInOrder) {
    const ChildRun run = runInChild([] {
        installShutdownHandler();
        blockSignalsWhileWorking();
        reportAtExit();
        kill(getpid(), SIGSEGV);
    });
    EXPECT_TRUE(run.exitedWith(0)) << run.waitStatus;
    EXPECT_EQ(run.err.find("_exit\nSkelmor received SIGSEGV. Shutting down and respawning!\n"), 0U)
        << run.err;
}

TEST(ShutdownProcess, ACrashWithAnExhaustedStackEndsTheProcessInOrderToo) {
    const ChildRun run = runInChild([] {
        installShutdownHandler();
        blockSignalsWhileWorking();
        reportAtExit();
        std::exit(depth(1) == 0 ? 3 : 4);
    });
    EXPECT_TRUE(run.exitedWith(0)) << run.waitStatus;
    EXPECT_EQ(run.err.find("_exit\nSkelmor received SIGSEGV. Shutting down and respawning!\n"), 0U)
        << run.err;
}

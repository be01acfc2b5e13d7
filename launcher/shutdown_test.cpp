#include "launcher/shutdown.h"

#include "barrier/barrier_table.h"
#include "process/process_state.h"
#include "tests/support/child_run.h"

#include <libcommon/events.h>
#include <libcommon/log.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

// Fakes of everything that the handler calls. Each prints a line on standard error; none sends, sleeps or waits.
namespace {

bool tracing = false; // in the child that shuts down
int sleepResult = 0;
bool crashInRemoveEventQueue = false;
int crashesInRemoveBarrier = 0; // so many times
int crashesInUsleep = 0;

void trace(const std::string& line) {
    std::fputs((line + "\n").c_str(), stderr);
}

std::string number(long value) {
    return std::to_string(value);
}

} // namespace

extern "C" int kill(pid_t pid, int signo) noexcept {
    trace("kill(" + number(pid) + "," + number(signo) + ")");
    return 0;
}
extern "C" int usleep(useconds_t time) {
    trace("usleep(" + number(time) + ")");
    if (crashesInUsleep-- > 0)
        std::raise(SIGSEGV);
    errno = sleepResult == 0 ? 0 : EINTR;
    return sleepResult;
}
extern "C" pid_t waitpid(pid_t pid, int* status, int options) {
    if (!tracing) {
        using Wait = pid_t(pid_t, int*, int);
        return reinterpret_cast<Wait*>(dlsym(RTLD_NEXT, "waitpid"))(pid, status, options);
    }
    std::fflush(stdout);
    trace("waitpid(" + number(pid) + "," + (status == nullptr ? "null" : "status") + "," + number(options) +
          ")");
    return pid;
}
extern "C" void closelog() {
    trace("closelog()");
}
extern "C" void muntrace() noexcept {
    trace("muntrace()");
}
void logmsg(int level, const char* format, ...) {
    char text[200];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    trace("log " + number(level) + " " + text);
}
int removeBarrier(int pid) {
    trace("removeBarrier(" + number(pid) + ")");
    if (crashesInRemoveBarrier-- > 0)
        std::raise(SIGSEGV);
    return -1;
}
void removeEventQueue() {
    trace("removeEventQueue()");
    if (crashInRemoveEventQueue)
        std::raise(SIGSEGV);
}
extern "C" void _exit(int status) {
    if (tracing && status != bodyReturned)
        trace("_exit(" + number(status) + ") with players " + number(process.currentPID) + " " +
              number(process.pendingPID));
    for (;;)
        syscall(SYS_exit_group, status);
}

namespace {

// Handles the signal in a child process, with these players.
ChildRun take(int signo, int currentPID, int pendingPID) {
    return runInChild([=] {
        tracing = true;
        process.currentPID = currentPID;
        process.pendingPID = pendingPID;
        // The process's values at its end.
        std::atexit([] {
            trace("exit with players " + number(process.currentPID) + " " + number(process.pendingPID));
        });
        installShutdownHandler();
        std::raise(signo);
    });
}

const std::string opening = "log 6 [SHUTDOWN] Skelmor shutdown started!!!\n"
                            "log 6 [SHUTDOWN] Sending SIGINT to children...\n";
const std::string closing = "log 6 [SHUTDOWN] Shutting down event queue...\n"
                            "removeEventQueue()\n"
                            "log 6 [SHUTDOWN] Closing log system...\n"
                            "closelog()\n"
                            "muntrace()\n";
const std::string exitHandlersRan = "exit with players -1 -1\n";
const std::string exitHandlersDidNotRun = "_exit(0) with players -1 -1\n"; // they free memory

std::string stopped(const std::string& pid) {
    return "kill(" + pid + ",2)\nusleep(500000)\nkill(" + pid + ",15)\nwaitpid(" + pid + ",null,0)\n";
}

} // namespace

TEST(Shutdown, SigintWithoutPlayersStopsNobody) {
    const ChildRun run = take(SIGINT, -1, -1);
    EXPECT_TRUE(run.exitedWith(0)) << run.waitStatus;
    EXPECT_EQ(run.err, opening +
                           "log 6 [SHUTDOWN] All children dead...\n"
                           "log 6 [SHUTDOWN] Removing barriers...\n" +
                           closing + exitHandlersRan);
    EXPECT_EQ(run.out, "");
}

TEST(Shutdown, SigsegvLogsTheCrashFirstAndExitsWithZeroToo) {
    const ChildRun run = take(SIGSEGV, -1, -1);
    EXPECT_TRUE(run.exitedWith(0)) << run.waitStatus;
    EXPECT_EQ(run.err, "log 3 Skelmor received SIGSEGV. Shutting down and respawning!\n" + opening +
                           "log 6 [SHUTDOWN] All children dead...\n"
                           "log 6 [SHUTDOWN] Removing barriers...\n" +
                           closing + exitHandlersDidNotRun);
}

TEST(Shutdown, TheCurrentPlayerIsStoppedBeforeThePendingOne) {
    const ChildRun run = take(SIGINT, 700002, 700001);
    EXPECT_TRUE(run.exitedWith(0)) << run.waitStatus;
    EXPECT_EQ(run.err, opening + stopped("700002") + stopped("700001") +
                           "log 6 [SHUTDOWN] All children dead...\n"
                           "log 6 [SHUTDOWN] Removing barriers...\n"
                           "removeBarrier(700002)\n"
                           "removeBarrier(700001)\n" +
                           closing + exitHandlersRan);
    EXPECT_EQ(run.out, "uslret = 0 errno=0\nuslret = 0 errno=0\n");
}

TEST(Shutdown, APendingPlayerAloneIsStopped) {
    const ChildRun run = take(SIGINT, -1, 700001);
    EXPECT_EQ(run.err, opening + stopped("700001") +
                           "log 6 [SHUTDOWN] All children dead...\n"
                           "log 6 [SHUTDOWN] Removing barriers...\n"
                           "removeBarrier(700001)\n" +
                           closing + exitHandlersRan);
}

TEST(Shutdown, ASleepThatAnEndingPlayerCutShortIsPrintedWithItsError) {
    sleepResult = -1;
    const ChildRun run = take(SIGINT, 700001, -1);
    sleepResult = 0;
    EXPECT_EQ(run.out, "uslret = -1 errno=4\n");
    EXPECT_TRUE(run.exitedWith(0)) << run.waitStatus;
}

TEST(Shutdown, ACrashDuringAnOrdinaryShutdownIsLoggedAndTheShutdownContinues) {
    const ChildRun run = runInChild([] {
        tracing = true;
        crashInRemoveEventQueue = true;
        installShutdownHandler();
        std::raise(SIGINT);
    });
    EXPECT_TRUE(run.exitedWith(0)) << run.waitStatus;
    EXPECT_EQ(run.err, opening + "log 6 [SHUTDOWN] All children dead...\n"
                                 "log 6 [SHUTDOWN] Removing barriers...\n"
                                 "log 6 [SHUTDOWN] Shutting down event queue...\n"
                                 "removeEventQueue()\n"
                                 "removeEventQueue()\n" // once more
                                 "log 3 Skelmor received SIGSEGV. Shutting down and respawning!\n"
                                 "log 6 [SHUTDOWN] Closing log system...\n"
                                 "closelog()\n"
                                 "muntrace()\n");
}

TEST(Shutdown, ARemovalThatCrashesIsTriedOnceMore) {
    const ChildRun run = runInChild([] {
        tracing = true;
        crashesInRemoveBarrier = 1;
        process.currentPID = 700001;
        installShutdownHandler();
        std::raise(SIGINT);
    });
    EXPECT_TRUE(run.exitedWith(0)) << run.waitStatus;
    EXPECT_NE(run.err.find("removeBarrier(700001)\nremoveBarrier(700001)\nlog 3 Skelmor received SIGSEGV"),
              std::string::npos)
        << run.err;
}

TEST(Shutdown, ACrashBetweenTwoStepsRepeatsThatPartAndGoesOn) {
    for (const int crashes : {1, 2, 3}) {
        const ChildRun run = runInChild([=] {
            tracing = true;
            crashesInUsleep = crashes;
            process.currentPID = 700002;
            process.pendingPID = 700001;
            installShutdownHandler();
            std::raise(SIGINT);
        });
        EXPECT_TRUE(run.exitedWith(0)) << run.waitStatus;
        EXPECT_EQ(run.err.find("waitpid(700002,null,0)") != std::string::npos, crashes == 1) << run.err;
        EXPECT_NE(run.err.find("waitpid(700001,null,0)"), std::string::npos) << run.err;
        EXPECT_NE(run.err.find("removeBarrier(700002)\nremoveBarrier(700001)\n"), std::string::npos)
            << run.err;
        EXPECT_NE(run.err.find("removeEventQueue()\n"), std::string::npos) << run.err;
    }
}

TEST(Shutdown, OtherSignalsDoNothing) {
    const ChildRun run = runInChild([] {
        tracing = true;
        process.currentPID = 700001;
        shutdownHandler(SIGTERM);
        shutdownHandler(SIGHUP);
        shutdownHandler(0);
    });
    EXPECT_TRUE(run.exitedWith(bodyReturned)) << run.waitStatus;
    EXPECT_EQ(run.err, "");
}

TEST(Shutdown, Sigusr1IsIgnored) {
    const ChildRun run = runInChild([] {
        installShutdownHandler();
        std::raise(SIGUSR1);
    });
    EXPECT_TRUE(run.exitedWith(bodyReturned)) << run.waitStatus;
}

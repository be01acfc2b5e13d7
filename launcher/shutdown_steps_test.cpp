#include "launcher/shutdown_steps.h"

#include "process/process_state.h"
#include "tests/support/child_run.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

namespace {

using shutdown_steps::runStep;

// A SIGSEGV handler like that of a shutdown.
void abandon(int) {
    shutdown_steps::abandonStep();
    _exit(7);
}

void say(const char* text) {
    (void)!write(STDOUT_FILENO, text, __builtin_strlen(text));
}

// Begins a shutdown in a child process, which is killed after 20 seconds, longer than any test may take.
ChildRun shutDown(void (*steps)()) {
    return runInChild([=] {
        alarm(20);
        struct sigaction crash {};
        crash.sa_handler = abandon;
        crash.sa_flags = SA_NODEFER;
        sigaction(SIGSEGV, &crash, nullptr);
        shutdown_steps::begin();
        steps();
        say("end\n");
        _exit(0);
    });
}

[[noreturn]] void hang(int) {
    for (;;)
        pause();
}

void hangBlockingEverything(int) {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    hang(0);
}

// Without a sanitizer, which would report the mistake and end the process before it crashes.
__attribute__((no_sanitize("address", "undefined"))) void crash(int) {
    volatile int* nowhere = nullptr;
    *nowhere = 1;
}

double secondsOf(const std::function<void()>& action) {
    const auto begin = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

bool watchdogIsPossible() {
#if defined(__SANITIZE_THREAD__)
    return false;
#else
    return true;
#endif
}

} // namespace

TEST(ShutdownSteps, StepsRunInTheirOrder) {
    const ChildRun run = shutDown([] {
        runStep(say, "one\n");
        runStep(say, "two\n");
    });
    EXPECT_EQ(run.out, "one\ntwo\nend\n");
    EXPECT_TRUE(run.exitedWith(0)) << run.waitStatus;
}

TEST(ShutdownSteps, AStepThatCrashesIsAbandoned) {
    const ChildRun run = shutDown([] {
        runStep(crash, 0);
        runStep(say, "on\n");
        runStep(crash, 0);
    });
    EXPECT_EQ(run.out, "on\nend\n");
    EXPECT_TRUE(run.exitedWith(0)) << run.waitStatus;
}

TEST(ShutdownSteps, ItIsKnownHowAStepEnded) {
    const ChildRun run = shutDown([] {
        const auto name = [](shutdown_steps::StepEnd end) {
            return end == shutdown_steps::StepEnd::done      ? "done\n"
                   : end == shutdown_steps::StepEnd::crashed ? "crashed\n"
                                                             : "hung\n";
        };
        say(name(runStep(say, "one\n")));
        say(name(runStep(crash, 0)));
        if (watchdogIsPossible())
            say(name(runStep(hang, 0)));
    });
    EXPECT_EQ(run.out,
              watchdogIsPossible() ? "one\ndone\ncrashed\nhung\nend\n" : "one\ndone\ncrashed\nend\n");
}

TEST(ShutdownSteps, ACrashBetweenStepsIsLeftToTheHandler) {
    const ChildRun run = shutDown([] {
        runStep(say, "one\n");
        crash(0);
    });
    EXPECT_EQ(run.out, "one\n");
    EXPECT_TRUE(run.exitedWith(7)) << run.waitStatus;
}

TEST(ShutdownSteps, AStepThatHangsIsAbandonedAfterASecond) {
    if (!watchdogIsPossible())
        GTEST_SKIP() << "no watchdog under the thread sanitizer";
    ChildRun run;
    const double seconds = secondsOf([&] {
        run = shutDown([] {
            runStep(hang, 0);
            runStep(hang, 0);
        });
    });
    EXPECT_EQ(run.out, "end\n");
    EXPECT_TRUE(run.exitedWith(0)) << run.waitStatus;
    EXPECT_GE(seconds, 2.0);
}

TEST(ShutdownSteps, AStepThatHangsWithEverySignalBlockedEndsTheProcess) {
    if (!watchdogIsPossible())
        GTEST_SKIP() << "no watchdog under the thread sanitizer";
    const ChildRun run = shutDown([] { runStep(hangBlockingEverything, 0); });
    EXPECT_EQ(run.out, "");
    EXPECT_TRUE(run.exitedWith(0)) << run.waitStatus;
}

TEST(ShutdownSteps, ThePlayersAreStoppedEvenThen) {
    if (!watchdogIsPossible())
        GTEST_SKIP() << "no watchdog under the thread sanitizer";
    // The players write to the same pipe, so the run ends only when they end.
    const ChildRun run = shutDown([] {
        for (std::atomic<int>* pid : {&process.currentPID, &process.pendingPID}) {
            *pid = fork();
            if (*pid == 0) {
                std::signal(SIGINT, SIG_IGN);
                alarm(20);
                hang(0);
            }
        }
        runStep(hangBlockingEverything, 0);
    });
    EXPECT_TRUE(run.exitedWith(0)) << run.waitStatus;
}

TEST(ShutdownSteps, TheRestEndsWhateverHappens) {
    if (!watchdogIsPossible())
        GTEST_SKIP() << "no watchdog under the thread sanitizer";
    ChildRun run;
    const double seconds = secondsOf([&] {
        run = shutDown([] {
            shutdown_steps::limitRest();
            hang(0); // between two steps
        });
    });
    EXPECT_EQ(run.out, "");
    EXPECT_TRUE(run.exitedWith(0)) << run.waitStatus;
    EXPECT_LT(seconds, 15.0);
}

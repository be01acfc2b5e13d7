#include "launcher/shutdown_steps.h"

#include "process/process_state.h"

#include <array>
#include <atomic>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

// The watchdog has no thread-local storage of its own, so no sanitizer may instrument it.
#define WATCHDOG __attribute__((no_sanitize("address", "undefined")))

namespace {

#if defined(__SANITIZE_THREAD__)
constexpr bool isPossible = false;
#else
constexpr bool isPossible = true;
#endif

// The calls that take a timespec as the C library has it: with 64-bit times, also where a long has 32 bits.
static_assert(sizeof(time_t) == 8);
#if defined(SYS_clock_gettime64)
constexpr long clockCall = SYS_clock_gettime64;
constexpr long sleepCall = SYS_clock_nanosleep_time64;
#else
constexpr long clockCall = SYS_clock_gettime;
constexpr long sleepCall = SYS_clock_nanosleep;
#endif

constexpr std::int64_t never = 0;
constexpr std::int64_t stepLimit = 1000; // milliseconds
constexpr std::int64_t restLimit = 5000;
constexpr std::int64_t betweenLooks = 20;
constexpr std::int64_t graceTime = 500; // between a player's SIGINT and its SIGTERM

// All process-wide state of this file. Times are milliseconds of the monotonic clock. Written by the main thread, read
// by the watchdog, with the compiler's own atomic operations, which never become function calls.
std::int64_t stepDeadline = never;
std::int64_t restDeadline = never;
bool hasBegun = false;
pid_t mainProcess = 0;
pid_t mainThread = 0;
alignas(16) std::array<char, std::size_t{32} * 1024> watchdogStack;

WATCHDOG std::int64_t now() {
    timespec time{};
    syscall(clockCall, CLOCK_MONOTONIC, &time);
    return std::int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1000000;
}

WATCHDOG void sleepFor(std::int64_t milliseconds) {
    timespec time{};
    time.tv_sec = static_cast<time_t>(milliseconds / 1000);
    time.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000;
    syscall(sleepCall, CLOCK_MONOTONIC, 0, &time, nullptr);
}

WATCHDOG std::int64_t load(const std::int64_t& value) {
    return __atomic_load_n(&value, __ATOMIC_SEQ_CST);
}

WATCHDOG void stopPlayer(int pid) {
    if (pid == -1)
        return;
    syscall(SYS_kill, pid, SIGINT);
    sleepFor(graceTime);
    syscall(SYS_kill, pid, SIGTERM);
    syscall(SYS_wait4, pid, nullptr, 0, nullptr);
}

// Stops the players without the main thread, because no player may be left running.
[[noreturn]] WATCHDOG void takeOver(int currentPID, int pendingPID) {
    if (load(restDeadline) == never) {
        stopPlayer(currentPID);
        stopPlayer(pendingPID);
    }
    for (;;)
        syscall(SYS_exit_group, 0);
}

int playerPid(const std::atomic<int>& pid) {
    return pid;
}

// Watches the steps until the process ends.
WATCHDOG int watch(void*) {
    std::int64_t abandoned = never; // the deadline of the step that was told to stop
    for (;;) {
        sleepFor(betweenLooks);
        const std::int64_t time = now();
        const std::int64_t rest = load(restDeadline);
        const std::int64_t step = load(stepDeadline);
        if (rest != never && time > rest)
            takeOver(-1, -1);
        if (step == never || time <= step)
            continue;
        if (step != abandoned) {
            abandoned = step;
            syscall(SYS_tgkill, mainProcess, mainThread, SIGSEGV);
        } else if (time > step + stepLimit) {
            takeOver(playerPid(process.currentPID), playerPid(process.pendingPID));
        }
    }
}

void store(std::int64_t& value, std::int64_t to) {
    __atomic_store_n(&value, to, __ATOMIC_SEQ_CST);
}

} // namespace

namespace shutdown_steps {

sigjmp_buf stepStart;

void begin() {
    hasBegun = true;
    mainProcess = getpid();
    mainThread = static_cast<pid_t>(syscall(SYS_gettid));
    // The thread starts with every signal blocked: no handler may ever run on its stack.
    sigset_t all;
    sigset_t saved;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &saved);
    constexpr int sharesAll =
        CLONE_VM | CLONE_FS | CLONE_FILES | CLONE_SIGHAND | CLONE_THREAD | CLONE_SYSVSEM;
    if (isPossible)
        clone(watch, watchdogStack.data() + watchdogStack.size(), sharesAll, nullptr);
    pthread_sigmask(SIG_SETMASK, &saved, nullptr);
}

bool stepIsOverdue() {
    const std::int64_t deadline = load(stepDeadline);
    return deadline != never && now() > deadline;
}

bool underWay() {
    return hasBegun;
}

void limitRest() {
    store(restDeadline, now() + restLimit);
}

void abandonStep() {
    if (load(stepDeadline) == never)
        return;
    const StepEnd end = stepIsOverdue() ? StepEnd::hung : StepEnd::crashed;
    store(stepDeadline, never);
    siglongjmp(stepStart, static_cast<int>(end));
}

void stepBegins() {
    store(stepDeadline, now() + stepLimit);
}

void stepEnds() {
    store(stepDeadline, never);
}

} // namespace shutdown_steps

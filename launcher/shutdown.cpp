#include "launcher/shutdown.h"

#include "barrier/barrier_table.h"
#include "launcher/shutdown_steps.h"
#include "process/process_state.h"
#include "process/trace_output.h"

#include <libcommon/events.h>
#include <libcommon/log.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <iterator>
#include <mcheck.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

namespace {

using shutdown_steps::runStep;

constexpr int noPlayer = -1;
constexpr useconds_t graceTime = 500000; // microseconds between SIGINT and SIGTERM
constexpr int nothing = 0;               // for steps without an argument

// All process-wide state of this file; main thread.
// The stack of the SIGSEGV handler. A thread that has used up its own stack needs another one for the handler.
alignas(16) std::array<char, std::size_t{256} * 1024> crashStack;
volatile std::sig_atomic_t crashed = 0;     // a SIGSEGV came
volatile std::sig_atomic_t crashLogged = 0; // and the log says so
volatile std::sig_atomic_t part = 0;        // of the shutdown: the one that runs
volatile std::sig_atomic_t partCrashed = 0; // that part has crashed between its steps

void logCrash() {
    if (crashed == 0 || crashLogged != 0)
        return;
    crashLogged = 1;
    runStep(
        +[](int) { logmsg(3, "Skelmor received SIGSEGV. Shutting down and respawning!"); }, nothing);
}

void log(const char* text) {
    logCrash(); // the crash may have happened during a shutdown
    runStep(
        +[](const char* line) { logmsg(6, "%s", line); }, text);
}

struct Slept {
    int result;
    int error;
};

void stopPlayer(int pid) {
    if (pid == noPlayer)
        return;
    kill(pid, SIGINT);
    const int result = usleep(graceTime);
    runStep(
        +[](Slept slept) { printTraceInHandler("uslret = %d errno=%d\n", slept.result, slept.error); },
        Slept{result, errno});
    kill(pid, SIGTERM);
    waitpid(pid, nullptr, 0);
}

// A crash may be over with the moment in which it came, so what would be left behind is tried once more. A step that
// hangs would only hang again.
void runImportantStep(void (*step)(int), int argument) {
    if (runStep(step, argument) == shutdown_steps::StepEnd::crashed)
        runStep(step, argument);
}

void removeBarrierOf(int pid) {
    if (pid != noPlayer)
        runImportantStep([](int player) { removeBarrier(player); }, pid);
}

// The shutdown's parts, in order.
using Part = void (*)();
constexpr Part parts[] = {
    [] { log("[SHUTDOWN] Skelmor shutdown started!!!"); },
    [] { log("[SHUTDOWN] Sending SIGINT to children..."); },
    [] { stopPlayer(process.currentPID); },
    [] { stopPlayer(process.pendingPID); },
    [] { log("[SHUTDOWN] All children dead..."); },
    [] { shutdown_steps::limitRest(); },
    [] { log("[SHUTDOWN] Removing barriers..."); },
    [] { removeBarrierOf(process.currentPID); },
    [] { removeBarrierOf(process.pendingPID); },
    [] { log("[SHUTDOWN] Shutting down event queue..."); },
    [] { runImportantStep([](int) { removeEventQueue(); }, nothing); },
    [] { log("[SHUTDOWN] Closing log system..."); },
    [] {
        runStep(
            +[](int) { closelog(); }, nothing);
    },
    [] {
        runStep(
            +[](int) { muntrace(); }, nothing);
    },
};

void runParts() {
    while (part < static_cast<int>(std::size(parts))) {
        parts[part]();
        part = part + 1;
        partCrashed = 0;
    }
    process.currentPID = noPlayer;
    process.pendingPID = noPlayer;
}

// After a crash between two steps: the part in which it came runs once more, or is left out when it crashes again.
[[noreturn]] void resume() {
    if (partCrashed != 0)
        part = part + 1;
    partCrashed = partCrashed == 0 ? 1 : 0;
    runParts();
    _exit(0);
}

// A SIGSEGV from the watchdog, from raise() or from the kernel is about the code that this thread runs now; one from
// another process may come at any time.
bool isOurOwn(const siginfo_t& info) {
    return info.si_code > 0 || info.si_pid == getpid();
}

// The handler for SIGSEGV. During a shutdown it abandons the running step; the shutdown continues with the next step.
void crashHandler(int signo, siginfo_t* info, void* /*context*/) {
    if (!shutdown_steps::stepIsOverdue())
        crashed = 1;
    if (!shutdown_steps::underWay())
        shutdownHandler(signo);
    if (!isOurOwn(*info))
        return;
    shutdown_steps::abandonStep();
    resume();
}

// SIGCHLD is not blocked in the SIGINT handler: the reaper may reap a player that ends in the grace time, and the
// waitpid then fails. After a crash SIGCHLD is blocked, because its handler may log while locks are held. A SIGINT
// during a crash's shutdown waits for its end; a crash during any shutdown does not.
void install(int signo, struct sigaction action, int flags) {
    action.sa_flags |= SA_RESTART | flags;
    sigemptyset(&action.sa_mask);
    sigaddset(&action.sa_mask, SIGINT);
    if (signo == SIGSEGV)
        sigaddset(&action.sa_mask, SIGCHLD);
    sigaction(signo, &action, nullptr);
}

} // namespace

#if defined(__SANITIZE_THREAD__)
// The handler uses functions that are not meant for handlers, on purpose; the thread sanitizer must not report it.
extern "C" const char* __tsan_default_options() {
    return "report_signal_unsafe=0";
}
#endif

void installShutdownHandler() {
    stack_t stack{};
    stack.ss_sp = crashStack.data();
    stack.ss_size = crashStack.size();
    sigaltstack(&stack, nullptr);
    struct sigaction interrupt {};
    interrupt.sa_handler = shutdownHandler;
    install(SIGINT, interrupt, 0);
    struct sigaction crash {};
    crash.sa_sigaction = crashHandler;
    install(SIGSEGV, crash, SA_SIGINFO | SA_ONSTACK | SA_NODEFER);
    std::signal(SIGUSR1, SIG_IGN);
}

void shutdownHandler(int signo) {
    if (signo != SIGINT && signo != SIGSEGV)
        return;
    if (signo == SIGSEGV)
        crashed = 1;
    shutdown_steps::begin();
    runParts();
    if (signo == SIGINT)
        runStep(
            +[](int status) { std::exit(status); }, 0);
    _exit(0);
}

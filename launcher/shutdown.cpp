#include "launcher/shutdown.h"

#include "barrier/barrier_table.h"
#include "process/process_state.h"

#include <libcommon/events.h>
#include <libcommon/log.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <mcheck.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

namespace {

constexpr int noPlayer = -1;
constexpr useconds_t graceTime = 500000; // microseconds between SIGINT and SIGTERM

// All process-wide state of this file: the stack of the handler for SIGSEGV, because a thread that ran out of
// stack has none left to end in order on.
alignas(16) std::array<char, std::size_t{256} * 1024> crashStack;

void stopPlayer(int pid) {
    if (pid == noPlayer)
        return;
    kill(pid, SIGINT);
    const int uslret = usleep(graceTime);
    std::printf("uslret = %d errno=%d\n", uslret, errno);
    kill(pid, SIGTERM);
    waitpid(pid, nullptr, 0);
}

void removeBarrierOf(int pid) {
    if (pid != noPlayer)
        removeBarrier(pid);
}

void cleanUp() {
    logmsg(6, "[SHUTDOWN] Removing barriers...");
    removeBarrierOf(process.currentPID);
    removeBarrierOf(process.pendingPID);
    logmsg(6, "[SHUTDOWN] Shutting down event queue...");
    removeEventQueue();
    logmsg(6, "[SHUTDOWN] Closing log system...");
    closelog();
    muntrace();
}

// SIGCHLD stays open during the handler where it was: the reaper may take a player that ends in the grace
// time, and the waitpid then fails. A SIGINT during a crash's shutdown waits for its end; a crash during
// SIGINT's does not.
void install(int signo, int flags) {
    struct sigaction action {};
    action.sa_handler = shutdownHandler;
    action.sa_flags = SA_RESTART | flags;
    sigemptyset(&action.sa_mask);
    sigaddset(&action.sa_mask, SIGINT);
    sigaction(signo, &action, nullptr);
}

} // namespace

#if defined(__SANITIZE_THREAD__)
// The handler uses what no handler should, on purpose; the thread sanitizer is not to report that.
extern "C" const char* __tsan_default_options() {
    return "report_signal_unsafe=0";
}
#endif

void installShutdownHandler() {
    stack_t stack{};
    stack.ss_sp = crashStack.data();
    stack.ss_size = crashStack.size();
    sigaltstack(&stack, nullptr);
    install(SIGINT, 0);
    install(SIGSEGV, SA_ONSTACK);
    std::signal(SIGUSR1, SIG_IGN);
}

void shutdownHandler(int signo) {
    if (signo == SIGSEGV)
        logmsg(3, "Skelmor received SIGSEGV. Shutting down and respawning!");
    if (signo != SIGINT && signo != SIGSEGV)
        return;
    logmsg(6, "[SHUTDOWN] Skelmor shutdown started!!!");
    logmsg(6, "[SHUTDOWN] Sending SIGINT to children...");
    stopPlayer(process.currentPID);
    stopPlayer(process.pendingPID);
    logmsg(6, "[SHUTDOWN] All children dead...");
    cleanUp();
    process.currentPID = noPlayer;
    process.pendingPID = noPlayer;
    std::exit(0);
}

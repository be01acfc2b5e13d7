#include "player/launch.h"

#include "barrier/barrier_table.h"
#include "player/children.h"
#include "player/player_command.h"
#include "player/port_pairs.h"
#include "process/agreed_numbers.h"
#include "process/process_state.h"
#include "process/signal_mask.h"
#include "process/trace_output.h"
#include "recorder/recorder.h"

#include <libcommon/log.h>
#include <libcommon/semaphores.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <sys/prctl.h>
#include <unistd.h>

namespace {

// Blocks all signals between fork and registration: a child that ran the supervisor's SIGINT handler would stop the
// supervisor's players. SIGSEGV is never blocked.
sigset_t holdSignals() {
    sigset_t held;
    sigset_t saved;
    sigfillset(&held);
    sigdelset(&held, SIGSEGV);
    pthread_sigmask(SIG_SETMASK, &held, &saved);
    return saved;
}

// The child's half of gaffel.
void becomeChild(int parent) {
    // Without this a child whose supervisor dies before the release would wait forever, or could take the release of a
    // child of the next supervisor. The setting survives exec: a player dies with its supervisor.
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent)
        _exit(1); // the supervisor died before the call above
    for (int signo = 0; signo < 32; ++signo)
        std::signal(signo, SIG_DFL);
    unblockAllSignals();
    semaphoreDecrease(forkHandshakeSemaphore);
}

// The parent's half.
void registerChild(int pid) {
    printTrace("Pushing back pid: %d\n", pid);
    addChild(pid);
    createBarrier(pid);
    semaphoreIncrease(forkHandshakeSemaphore);
}

} // namespace

int gaffel() {
    const int parent = getpid();
    // A child that was killed before its release has left a token behind, which would let the next child pass
    // before its barrier exists. Every earlier child is dead or past the hand-shake by now: the state machine
    // starts a player only after the last one reached a barrier or was reaped.
    semaphoreSet(forkHandshakeSemaphore, 0);
    const sigset_t saved = holdSignals();
    const int pid = fork();
    if (pid == 0) {
        becomeChild(parent);
        return 0;
    }
    const int error = errno;
    if (pid > 0)
        registerChild(pid);
    pthread_sigmask(SIG_SETMASK, &saved, nullptr);
    errno = error;
    return pid;
}

int launchPlayer(SourceEntry* entry) {
    if (entry == nullptr) {
        logmsg(3, "launchPlayer called with NULL entry.");
        return -1;
    }
    if (!entry->detectedOK) {
        logmsg(3, "launchPlayer called with an invalid entry.");
        return -1;
    }
    int port = -1;
    if (streamKind(entry->detectedType).ports == PlayerPorts::OwnPair) {
        port = recorder::outcome("port", allocatePlayerPortPair);
        if (port == -1) {
            logmsg(3, "launchPlayer failed to bind port.");
            return -1;
        }
    }
    semaphoreSet(playerStartSemaphore, 0);
    const PlayerCommand command(buildCommandLine(*entry, static_cast<std::uint16_t>(port)));
    if (process.verbosity > 1)
        logmsg(7, "Using cmdline '%s'", command.text().c_str());
    const int pid = recorder::outcome("player", [&] {
        const int child = gaffel();
        if (child == 0)
            command.execute();
        return child;
    });
    if (pid == -1) {
        const int error = errno;
        logmsg(3, "Failed to gaffel() errno=%d (%s)", error, std::strerror(error));
        return -1;
    }
    printTrace("Launched pid: %d\n", pid);
    return pid;
}

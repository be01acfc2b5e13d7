#include "player/children.h"

#include "process/agreed_numbers.h"

#include <libcommon/events.h>
#include <libcommon/semaphores.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <sys/wait.h>
#include <syslog.h>
#include <vector>

namespace {

// Process-wide state.
// Pids of live children in the order of their creation; empty at first. Main thread: addChild appends with SIGCHLD
// blocked; the handler only erases, which moves pids and neither allocates nor frees. Never destroyed, because a child
// may end while the process exits.
std::vector<int>& children = *new std::vector<int>;

void announceExit(int pid, int status) {
    Event event{};
    event.id = EID_CHILD;
    event.value1 = pid;
    event.value2 = status;
    // Not logmsg, which is not safe in a signal handler.
    if (sendEvent(&event) != 0)
        syslog(LOG_ERR, "SIGCHLD: Failed to sendEvent() from the signalHandler");
}

// Reaps the first ended child of the list and announces it; false when none has ended.
bool reapOne() {
    for (auto child = children.begin(); child != children.end(); ++child) {
        const int pid = *child;
        int status = 0;
        if (waitpid(pid, &status, WNOHANG) == pid) {
            children.erase(child);
            announceExit(pid, status);
            return true;
        }
    }
    return false;
}

} // namespace

void addChild(int pid) {
    sigset_t childSignal;
    sigset_t saved;
    sigemptyset(&childSignal);
    sigaddset(&childSignal, SIGCHLD);
    pthread_sigmask(SIG_BLOCK, &childSignal, &saved);
    children.push_back(pid);
    pthread_sigmask(SIG_SETMASK, &saved, nullptr);
}

void installChildReaper() {
    struct sigaction action {};
    action.sa_handler = reapChildren;
    action.sa_flags = SA_RESTART | SA_NOCLDSTOP;
    sigemptyset(&action.sa_mask);
    sigaddset(&action.sa_mask, SIGINT); // a shutdown must not start between the reaping and its event
    sigaction(SIGCHLD, &action, nullptr);
    semaphoreInit(forkHandshakeSemaphore);
}

void reapChildren(int signo) {
    if (signo != SIGCHLD || children.empty())
        return;
    const int savedErrno = errno;
    while (reapOne()) {
    }
    errno = savedErrno;
}

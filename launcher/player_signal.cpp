#include "launcher/player_signal.h"

#include <libcommon/log.h>

#include <cerrno>
#include <csignal>
#include <cstring>

void signalPlayer(int pid, int signo) {
    if (pid <= 0) {
        logmsg(3, "There is no player with pid %d to send signal %d to", pid, signo);
        return;
    }
    // A player may have been reaped while its EID_CHILD is still queued.
    if (kill(pid, signo) == -1 && errno != ESRCH)
        logmsg(3, "Could not send signal %d to player %d (errno=%d %s)", signo, pid, errno,
               std::strerror(errno));
}

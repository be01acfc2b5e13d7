// A player that shows nothing: it meets the supervisor at the barriers and otherwise sleeps, so that what is measured is
// the supervisor. With TINY_PLAYER_ALONE in the environment there is no supervisor, and it only sleeps.
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <libcommon/barriers.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace {

bool meet(int barrier) {
    while (libcommon::announceBarrier(barrier) != 0)
        if (errno != EINTR)
            return false;
    while (libcommon::awaitBarrierRelease(barrier) != 0)
        if (errno != EINTR)
            return false;
    return true;
}

} // namespace

int main() {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    sigset_t awaited;
    sigemptyset(&awaited);
    sigaddset(&awaited, SIGHUP);
    sigaddset(&awaited, SIGINT);
    sigprocmask(SIG_BLOCK, &awaited, nullptr);
    const bool alone = std::getenv("TINY_PLAYER_ALONE") != nullptr;
    if (!alone && !(meet(0) && meet(1)))
        _exit(21);
    const int signal = sigwaitinfo(&awaited, nullptr);
    if (!alone && signal == SIGHUP && !meet(1))
        _exit(21);
    _exit(0);
}

// A player that shows nothing and gives up like the real ones: when the supervisor does not release it from a barrier in
// time, it ends with status 25. The real players wait for a minute; this one waits for five seconds.
#include <cerrno>
#include <csignal>
#include <ctime>
#include <libcommon/barriers.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace {

constexpr int notReleased = 25;
constexpr int failed = 21;
constexpr int tries = 1000;
constexpr timespec betweenTries{0, 5'000'000};

void meet(int barrier) {
    while (libcommon::announceBarrier(barrier) != 0) {
        if (errno != EINTR) {
            _exit(failed);
        }
    }
    for (int i = 0; i < tries; ++i) {
        if (libcommon::pollBarrierRelease(barrier) == 0) {
            return;
        }
        if (errno != EAGAIN && errno != EINTR) {
            _exit(failed);
        }
        nanosleep(&betweenTries, nullptr);
    }
    _exit(notReleased);
}

} // namespace

int main() {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    sigset_t awaited;
    sigemptyset(&awaited);
    sigaddset(&awaited, SIGHUP);
    sigaddset(&awaited, SIGINT);
    sigprocmask(SIG_BLOCK, &awaited, nullptr);
    meet(0);
    meet(1);
    if (sigwaitinfo(&awaited, nullptr) == SIGHUP) {
        meet(1);
    }
    _exit(0);
}

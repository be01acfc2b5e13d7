#include "appliance/players/showing/supervisor_link.h"

#include <libcommon/barriers.h>
#include <libcommon/clock.h>
#include <libcommon/log.h>

#include <cerrno>
#include <cstring>
#include <semaphore>
#include <thread>
#include <utility>

namespace player {

struct SupervisorLink::State {
    explicit State(LinkActions given) : actions(std::move(given)) {}
    LinkActions actions;
    std::counting_semaphore<> leaveAsked{0};
};

namespace {

// False when the supervisor or the barrier is gone.
bool announceAndWait(int barrier) {
    if (libcommon::announceBarrier(barrier) != 0) {
        logmsg(3, "Can't announce barrier %d (errno=%d %s)", barrier, errno, std::strerror(errno));
        return false;
    }
    while (libcommon::awaitBarrierRelease(barrier) != 0) {
        if (errno == EINTR)
            continue;
        if (errno == EPROTO) { // a release of another barrier: continue to wait
            logmsg(3, "Released from another barrier than %d", barrier);
            continue;
        }
        logmsg(6, "Barrier %d is gone (errno=%d %s)", barrier, errno, std::strerror(errno));
        return false;
    }
    return true;
}

// Announces this player at the barrier and waits for its release. False when the supervisor is gone.
bool meet(int barrier, const LinkActions& actions) {
    actions.waiting(gettimeusec());
    const bool released = announceAndWait(barrier);
    actions.waiting(0);
    return released;
}

} // namespace

SupervisorLink::SupervisorLink(LinkActions actions) : state_(*new State(std::move(actions))) {}

void SupervisorLink::start() {
    std::thread([&state = state_] {
        if (!meet(0, state.actions) || !meet(1, state.actions)) {
            state.actions.ended(false);
            return;
        }
        state.actions.show();
        state.leaveAsked.acquire();
        state.actions.beforeLeaving();
        const bool released = meet(1, state.actions);
        state.actions.stop();
        state.actions.ended(released);
    }).detach();
}

void SupervisorLink::leave() {
    state_.leaveAsked.release();
}

} // namespace player

#include "barrier/master_barrier.h"

#include "barrier/barrier_table.h"
#include "events/event_queue.h"

#include <libcommon/events.h>
#include <libcommon/log.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <map>
#include <sys/msg.h>
#include <unistd.h>

namespace {

// The players that are waited for, and whether each has arrived.
using Monitored = std::map<int, bool>;

// An event record whose identifier doubles as the message type.
struct ReleaseMessage {
    long type = EID_BARRIER;
    std::int32_t supervisorPid = 0;
    std::int32_t barrierId = 0;
    std::int32_t unused[11]{};
};
constexpr std::size_t releaseSize = 52;
static_assert(sizeof(ReleaseMessage) >= sizeof(long) + releaseSize);

Monitored monitor(std::span<const int> pids) {
    Monitored monitored;
    for (const int pid : pids) {
        std::printf("waitBarrier monitoring:%d\n", pid);
        monitored.emplace(pid, false);
    }
    return monitored;
}

// A child has ended: its exit is the state machine's to judge, and who arrived before must not have to do it
// again.
void giveBack(const Event& childExit, int barrierId, const Monitored& monitored) {
    sendEvent(&childExit);
    for (const auto& [pid, arrived] : monitored) {
        if (!arrived)
            continue;
        Event arrival{};
        arrival.id = EID_BARRIER;
        arrival.value1 = pid;
        arrival.value2 = barrierId;
        sendEvent(&arrival);
    }
}

enum class Arrival { counted, ignored, wrong };

Arrival arrive(const Event& event, int barrierId, Monitored& monitored) {
    const auto player = monitored.find(event.value1);
    if (player == monitored.end()) {
        logmsg(7, "masterBarrier(%d) got event from non monitored PID. pid=%d", barrierId, event.value1);
        return Arrival::ignored;
    }
    if (event.value2 != barrierId) {
        logmsg(3, "masterBarrier(%d) got event with wrong barrierID. barrierID=%d", barrierId, event.value2);
        return Arrival::wrong;
    }
    if (player->second) {
        logmsg(3, "masterBarrier(%d) got multiple barrier from same PID. barrierID=%d pid=%d", barrierId,
               event.value2, event.value1);
        return Arrival::wrong;
    }
    player->second = true;
    return Arrival::counted;
}

// Waits for all of them. Kept: `count` is the number of pids asked for, so a pid given twice is awaited
// twice.
bool awaitArrivals(int barrierId, Monitored& monitored, std::size_t count) {
    std::size_t arrived = 0;
    while (arrived < count) {
        Event event{};
        if (getNextEvent(&event, take(EID_CHILD), take(EID_BARRIER), SKIP_OTHERS) < 0)
            return false;
        if (event.id == EID_CHILD) {
            giveBack(event, barrierId, monitored);
            return false;
        }
        switch (arrive(event, barrierId, monitored)) {
        case Arrival::counted:
            ++arrived;
            break;
        case Arrival::ignored:
            break;
        case Arrival::wrong:
            return false;
        }
    }
    return true;
}

bool release(int pid, int barrierId) {
    ReleaseMessage message;
    message.supervisorPid = getpid();
    message.barrierId = barrierId;
    if (msgsnd(barrierQueue(pid), &message, releaseSize, 0) == 0)
        return true;
    // kept: the supervisor's own pid stands where the player's would.
    logmsg(3, "masterBarrier(%d). msgsnd() failed. dest pid=%d\n", barrierId, getpid());
    return false;
}

} // namespace

int masterBarrierOf(int barrierId, std::span<const int> pids) {
    Monitored monitored = monitor(pids);
    if (!awaitArrivals(barrierId, monitored, pids.size()))
        return -1;
    bool released = true;
    for (const auto& [pid, arrived] : monitored)
        released = release(pid, barrierId) && released;
    return released ? 0 : -1;
}

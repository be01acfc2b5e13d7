#include "barrier/master_barrier.h"

#include "barrier/barrier_table.h"
#include "events/event_queue.h"
#include "process/signal_mask.h"
#include "process/trace_output.h"
#include "recorder/recorder.h"

#include <libcommon/events.h>
#include <libcommon/log.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <map>
#include <sys/msg.h>
#include <unistd.h>

namespace {

// The players to wait for, and whether each has arrived.
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
constexpr int betweenLooks = 10; // milliseconds between two checks of a full queue

Monitored monitor(std::span<const int> pids) {
    Monitored monitored;
    for (const int pid : pids) {
        printTrace("waitBarrier monitoring:%d\n", pid);
        monitored.emplace(pid, false);
    }
    return monitored;
}

// A child has ended: sends its exit again, for the state machine, and the arrivals so far, because a player
// announces itself only once.
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

// Waits for all of them. Kept: `count` is the number of given pids, so a pid given twice must arrive twice.
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

bool isFull(int queue) {
    msqid_ds state{};
    return msgctl(queue, IPC_STAT, &state) == 0 &&
           (state.__msg_cbytes + releaseSize > state.msg_qbytes || state.msg_qnum >= state.msg_qbytes);
}

// Sends the message to the player's queue. Another process may have filled the queue; then this waits for room, with
// signals let in, as long as the player lives.
bool send(int pid, const ReleaseMessage& message) {
    const int queue = barrierQueue(pid);
    for (;;) {
        while (isFull(queue)) {
            if (kill(pid, 0) == -1 && errno == ESRCH)
                return false;
            pauseMilliseconds(betweenLooks);
        }
        const OpenSignals open; // the room may be gone again
        if (msgsnd(queue, &message, releaseSize, 0) == 0)
            return true;
        if (errno != EINTR)
            return false;
    }
}

bool release(int pid, int barrierId) {
    ReleaseMessage message;
    message.supervisorPid = getpid();
    message.barrierId = barrierId;
    if (send(pid, message))
        return true;
    // Kept: the log line has the supervisor's own pid in place of the player's.
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
        released =
            recorder::outcome("release", [&] { return release(pid, barrierId) ? 1 : 0; }) != 0 && released;
    return released ? 0 : -1;
}

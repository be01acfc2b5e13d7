#include "libcommon/src/event_senders.h"

#include "libcommon/src/bounded_lock.h"
#include "libcommon/src/event_queue_id.h"
#include "libcommon/src/files.h"
#include "libcommon/src/signals_held.h"

#include <libcommon/barriers.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <new>
#include <sys/file.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

namespace local {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr long messageType = 1;
constexpr milliseconds senderPatience{250};

struct Message {
    long type;
    Event event;
};

// The announcements of a player that were sealed, null before. Written by sealAnnouncement(), before other threads exist.
std::array<const Message*, 2> sealed{};

// Events that the supervisor sends to itself. Forged child exits or timeouts would fill the supervisor's internal queue
// up to its limit, and the real one would be dropped.
bool isOwnersAlone(int id) {
    return id == EID_CHILD || id == EID_BUTTON || id == EID_TIMEOUT;
}

// Fails when no living supervisor owns the queue, or when the outsiders' share is full. The share is the queue without
// one `part`-th of it, so that the supervisor's own events always fit.
int putWithinShare(int fd, const Event& event, unsigned part) {
    RunId record;
    msqid_ds queue{};
    if (!readRunId(fd, record) || !lookAtEventQueue(record, queue))
        return -1;
    if (!ownerLives(record)) {
        errno = ENOENT;
        return -1;
    }
    if (queue.__msg_cbytes + sizeof(Event) > queue.msg_qbytes - queue.msg_qbytes / part) {
        errno = EAGAIN;
        return -1;
    }
    const int result = putEvent(record.id, event);
    if (result != 0 && (errno == EINVAL || errno == EIDRM))
        errno = ENOENT;
    return result;
}

// A player announces itself a few times in its life. It takes no lock: a process that holds the lock must not be able
// to stop announcements.
int putAnnouncement(int fd, const Event& event) {
    return putWithinShare(fd, event, 8);
}

// The lock makes looking and sending one step among all outsiders; the owner never takes it.
int putUnderLock(int fd, const Event& event, steady_clock::time_point end) {
    const auto left = std::chrono::duration_cast<milliseconds>(end - steady_clock::now());
    if (!lockWithin(fd, LOCK_EX, std::max(left, milliseconds(0)), SignalsInWait::kept)) {
        if (errno == ETIMEDOUT)
            errno = EAGAIN;
        return -1;
    }
    const int result = putWithinShare(fd, event, 4);
    const ErrnoKept errnoKept;
    flock(fd, LOCK_UN); // explicitly: a child forked meanwhile has the same lock open
    return result;
}

} // namespace

const void* sealAnnouncement(int barrierId, void* at) {
    Event event{};
    event.id = EID_BARRIER;
    event.value1 = getpid();
    event.value2 = barrierId;
    auto* message = new (at) Message{messageType, event};
    sealed.at(static_cast<std::size_t>(barrierId)) = message;
    return message;
}

int putEvent(int queue, const Event& event) {
    for (const Message* message : sealed)
        if (message != nullptr && std::memcmp(&message->event, &event, sizeof event) == 0)
            return msgsnd(queue, message, sizeof message->event, IPC_NOWAIT);
    const Message message{messageType, event};
    return msgsnd(queue, &message, sizeof message.event, IPC_NOWAIT);
}

std::ptrdiff_t takeMessage(int queue, EventMessage& message, int flags) {
    return msgrcv(queue, &message, sizeof message.event + 1, 0, flags | MSG_NOERROR);
}

int sendAsOutsider(const Event& event) {
    const bool announces = event.id == EID_BARRIER;
    if (isOwnersAlone(event.id) || (announces && (event.value1 != getpid() || getBarrierIPC(getpid()) < 0))) {
        errno = EPERM;
        return -1;
    }
    // A handler that interrupted the locked section and sent an event, too, would deadlock.
    const SignalsHeld signalsHeld;
    const auto end = steady_clock::now() + senderPatience;
    int result = -1;
    // Tries twice, because the file may name a queue that its next owner is just replacing.
    for (int i = 0; i < 2 && result != 0; ++i) {
        const Descriptor fd(openRunId(eventQueueName));
        if (!fd)
            return -1;
        result = announces ? putAnnouncement(fd.get(), event) : putUnderLock(fd.get(), event, end);
        if (result != 0 && errno != ENOENT)
            break;
    }
    return result;
}

} // namespace local

#include <libcommon/events.h>

#include "libcommon/src/event_queue_id.h"
#include "libcommon/src/files.h"
#include "libcommon/src/signals_held.h"
#include "libcommon/src/utf8.h"

#include <libcommon/log.h>
#include <libcommon/paths.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <sys/file.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

namespace {

constexpr long messageType = 1;

struct Message {
    long type;
    Event event;
};

// The queue that this process owns, -1 for none, and which process that is: a forked child inherits both and
// is an outsider all the same. Written by initEventQueue and removeEventQueue; read by any thread and signal
// handler.
std::atomic<int> ownedQueue{-1};
std::atomic<int> owner{0};
static_assert(std::atomic<int>::is_always_lock_free);

// The caller's own queue; -1 with ENOENT when this process is not the owner.
int ownQueue() {
    const int queue = owner == getpid() ? ownedQueue.load() : -1;
    if (queue < 0)
        errno = ENOENT;
    return queue;
}

// For the sender a queue that was removed is an appliance that does not run.
int sendResult(int result) {
    if (result != 0 && (errno == EINVAL || errno == EIDRM))
        errno = ENOENT;
    return result;
}

int put(int queue, const Event* event) {
    const Message message{messageType, *event};
    return msgsnd(queue, &message, sizeof message.event, IPC_NOWAIT);
}

// Another sender holds the lock for a few system calls only, unless it was stopped in the middle of them.
bool lockSoon(int fd) {
    constexpr int tries = 250;
    for (int i = 0; i < tries; ++i) {
        if (flock(fd, LOCK_EX | LOCK_NB) == 0)
            return true;
        if (errno != EWOULDBLOCK && errno != EINTR)
            return false;
        const timespec pause{.tv_sec = 0, .tv_nsec = 1'000'000};
        nanosleep(&pause, nullptr);
    }
    errno = EAGAIN;
    return false;
}

// The lock makes looking and sending one step among all outsiders; the owner never takes it.
int putWithinShare(int fd, const Event* event) {
    local::RunId record;
    msqid_ds queue{};
    if (!local::readRunId(fd, record) || !local::lookAtEventQueue(record, queue))
        return -1;
    if (!local::ownerLives(record)) {
        errno = ENOENT;
        return -1;
    }
    if (queue.__msg_cbytes + sizeof(Event) > queue.msg_qbytes - queue.msg_qbytes / 4) {
        errno = EAGAIN;
        return -1;
    }
    return put(record.id, event);
}

int sendAsOutsider(const Event* event) {
    // A handler that interrupted the locked section and sent an event too would wait for itself.
    const local::SignalsHeld signalsHeld;
    int result = -1;
    // Twice: the file may name a queue that its next owner is just replacing.
    for (int i = 0; i < 2 && result != 0; ++i) {
        const local::Descriptor fd(local::openRunId(local::eventQueueName));
        if (!fd || !lockSoon(fd.get()))
            return -1;
        result = sendResult(putWithinShare(fd.get(), event));
        const local::ErrnoKept errnoKept;
        flock(fd.get(), LOCK_UN); // explicitly: a child forked meanwhile has the same lock open
        if (result != 0 && errnoKept.value() != ENOENT)
            break;
    }
    return result;
}

// A new queue, never the machine's first one: a program that forgot to fill in a queue's identifier means
// that one, and would remove it or put its messages there.
int newQueue() {
    const int queue = msgget(IPC_PRIVATE, IPC_CREAT | 0660);
    if (queue != 0)
        return queue;
    const int next = msgget(IPC_PRIVATE, IPC_CREAT | 0660);
    const local::ErrnoKept errnoKept;
    msgctl(queue, IPC_RMID, nullptr);
    return next;
}

int makeQueue(local::RunId& record) {
    msqid_ds queue{};
    record.id = newQueue();
    if (record.id < 0 || msgctl(record.id, IPC_STAT, &queue) != 0)
        return -1;
    record.stamp = queue.msg_ctime;
    return 0;
}

// Takes over the queue that a supervisor before left, with what is in it, or makes one.
int attach(local::RunId& record) {
    msqid_ds queue{};
    const bool found = local::readRunId(local::eventQueueName, record) &&
                       local::lookAtEventQueue(record, queue) && queue.msg_perm.cuid == geteuid();
    if (!found && makeQueue(record) != 0)
        return -1;
    record.pid = getpid();
    if (local::writeRunId(local::eventQueueName, record))
        return 0;
    if (!found) {
        const local::ErrnoKept errnoKept;
        msgctl(record.id, IPC_RMID, nullptr);
    }
    return -1;
}

} // namespace

namespace local {

bool lookAtEventQueue(const RunId& record, msqid_ds& queue) {
    if (msgctl(record.id, IPC_STAT, &queue) != 0) {
        if (errno == EINVAL || errno == EIDRM)
            errno = ENOENT;
        return false;
    }
    if (queue.msg_perm.__key == IPC_PRIVATE && queue.msg_ctime == record.stamp)
        return true;
    errno = ENOENT;
    return false;
}

bool ownerLives(const RunId& record) {
    return record.pid > 0 && (kill(record.pid, 0) == 0 || errno == EPERM);
}

bool ownsEventQueue() {
    return owner == getpid();
}

int removeLeftEventQueue() {
    RunId record;
    msqid_ds queue{};
    if (!readRunId(eventQueueName, record))
        return 0;
    const RunIdLock lock(eventQueueName);
    const bool found = lock && readRunId(eventQueueName, record) && lookAtEventQueue(record, queue);
    const bool gone = lock && (found ? msgctl(record.id, IPC_RMID, nullptr) == 0 : errno == ENOENT);
    if (!gone) {
        logmsg(3, "Failed to remove the event queue. (errno=%d %s)", errno, std::strerror(errno));
        return -1;
    }
    removeRunId(eventQueueName);
    return found ? 1 : 0;
}

} // namespace local

int initEventQueue() {
    libcommon::applianceRoot(); // senders in signal handlers can't read it for the first time
    local::RunId record;
    const local::RunIdLock lock(local::eventQueueName);
    if (!lock || attach(record) != 0) {
        logmsg(3, "Failed to attach to the event queue. (errno=%d %s)", errno, std::strerror(errno));
        return -1;
    }
    ownedQueue = record.id;
    owner = getpid();
    return 0;
}

int waitEvent(Event* event) {
    if (event == nullptr) {
        errno = EINVAL;
        return -1;
    }
    // Longer than an event, so that a message which is none shows.
    struct {
        long type;
        char bytes[sizeof(Event) + 1];
    } message{};
    for (;;) {
        const int queue = ownQueue();
        if (queue < 0)
            return -1;
        const ssize_t length = msgrcv(queue, &message, sizeof message.bytes, 0, MSG_NOERROR);
        if (length == sizeof(Event)) {
            std::memcpy(event, message.bytes, sizeof *event);
            return 0;
        }
        if (length >= 0)
            logmsg(3, "Dropped a message of the event queue that is no event.");
        else if (errno != EINTR)
            return -1;
    }
}

int sendEvent(const Event* event) {
    if (event == nullptr) {
        errno = EINVAL;
        return -1;
    }
    if (owner != getpid())
        return sendAsOutsider(event);
    const int queue = ownQueue();
    return queue < 0 ? -1 : sendResult(put(queue, event));
}

void clearEventQueue() {
    const int queue = ownQueue();
    msqid_ds state{};
    if (queue < 0 || msgctl(queue, IPC_STAT, &state) != 0) {
        logmsg(3, "There is no event queue to clear. (errno=%d %s)", errno, std::strerror(errno));
        return;
    }
    Message message{};
    // Not until it is empty: senders may be as fast.
    for (msgqnum_t i = 0; i < state.msg_qnum; ++i)
        if (msgrcv(queue, &message, sizeof message.event, 0, IPC_NOWAIT | MSG_NOERROR) < 0 && errno != EINTR)
            return;
}

void removeEventQueue() {
    const local::ErrnoKept errnoKept;
    const int queue = ownQueue();
    if (queue < 0)
        return;
    ownedQueue = -1;
    msgctl(queue, IPC_RMID, nullptr);
    local::RunId record;
    if (local::readRunId(local::eventQueueName, record) && record.id == queue)
        local::removeRunId(local::eventQueueName);
}

namespace libcommon {

int eventQueueOwner() {
    local::RunId record;
    msqid_ds queue{};
    const bool there = local::readRunId(local::eventQueueName, record) &&
                       local::lookAtEventQueue(record, queue) && local::ownerLives(record);
    return there ? record.pid : -1;
}

void setEventText(Event& event, const char* text) {
    static_assert(sizeof event.payload == alarmTextBytes + 1);
    std::memset(event.payload, 0, sizeof event.payload);
    if (text == nullptr)
        return;
    const std::string_view whole(text, strnlen(text, alarmTextBytes + 1));
    std::memcpy(event.payload, text, local::cutLength(whole, alarmTextBytes));
}

} // namespace libcommon

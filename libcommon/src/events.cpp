#include <libcommon/events.h>

#include "libcommon/src/bounded_lock.h"
#include "libcommon/src/event_queue_id.h"
#include "libcommon/src/event_senders.h"
#include "libcommon/src/signals_held.h"
#include "libcommon/src/utf8.h"

#include <libcommon/clock.h>
#include <libcommon/log.h>
#include <libcommon/paths.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <string_view>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

namespace {

// Identifiers that can be queued.
bool isKnown(int id) {
    return id >= 0 && id <= EID_RECONNECT;
}

// ---- All process-wide state of this file.
// The process that called initEventQueue(), 0 for none: a forked child inherits the number but is an outsider. Written
// by initEventQueue.
std::atomic<int> owner{0};
// The owner's queue, -1 while there is none. Written by initEventQueue, removeEventQueue and the waiting thread; read
// by any thread and signal handler.
std::atomic<int> ownedQueue{-1};
// Whether the owner itself has removed the queue. Written by initEventQueue and removeEventQueue.
std::atomic<bool> removed{false};
// How often initEventQueue was called; a thread that waits after removeEventQueue sleeps on it.
std::atomic<int> attachments{0};
// Messages that were dropped since the last log line about them, and when that was. Used by the waiting thread only.
unsigned long droppedMessages = 0;
std::int64_t droppedLogTime = 0;
// Whether the failure to make the queue again has been logged. Used by the waiting thread only.
bool renewalFailed = false;
// When the record of the queue may be restored next, on gettimeusec()'s clock. Used by the waiting thread only.
std::int64_t nextRestoration = 0;
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);

bool isOwner() {
    return owner == getpid();
}

// The caller's own queue; -1 with ENOENT when this process is not the owner, or has none.
int ownQueue() {
    const int queue = isOwner() ? ownedQueue.load() : -1;
    if (queue < 0)
        errno = ENOENT;
    return queue;
}

bool isGone(int error) {
    return error == EINVAL || error == EIDRM;
}

// A lost child exit would leave the supervisor waiting forever. So it is sent again after another process has removed the
// queue, while the waiting thread makes a new one, and after senders that do not use the library have filled it, while the
// waiting thread makes room.
int sendAsOwner(const Event& event) {
    constexpr int tries = 250;
    const timespec pause{.tv_sec = 0, .tv_nsec = 1'000'000};
    int error = 0;
    for (int i = 0; i < tries; ++i) {
        const int queue = ownQueue();
        if (queue < 0)
            return -1;
        if (local::putEvent(queue, event) == 0)
            return 0;
        error = errno;
        if (!isGone(error) && error != EAGAIN)
            return -1;
        nanosleep(&pause, nullptr);
    }
    errno = error == EAGAIN ? EAGAIN : ENOENT;
    return -1;
}

// At most one line a minute, so that a flood does not fill the log.
void noteDropped() {
    constexpr std::int64_t pause = 60'000'000;
    ++droppedMessages;
    const std::int64_t now = gettimeusec();
    if (droppedLogTime != 0 && now - droppedLogTime < pause)
        return;
    logmsg(3, "Dropped messages of the event queue that are no events: %lu", droppedMessages);
    droppedMessages = 0;
    droppedLogTime = now;
}

// Makes the queue again. `lost` is the identifier of the one that was removed, -1 when none could be made at start.
// Without a queue the process would live on and never receive an event.
void renewQueue(int lost) {
    constexpr std::chrono::milliseconds pause{1000};
    local::RunId record;
    if (!local::attachEventQueue(record) || record.id == lost) {
        if (!renewalFailed)
            logmsg(3,
                   "There is no event queue and none can be made; trying again every second. (errno=%d %s)",
                   errno, std::strerror(errno));
        renewalFailed = true;
        local::pauseFor(pause, local::SignalsInWait::kept);
        return;
    }
    renewalFailed = false;
    int expected = lost;
    if (!removed && ownedQueue.compare_exchange_strong(expected, record.id)) {
        logmsg(
            3, "%s",
            lost < 0
                ? "The event queue is there now."
                : "The event queue was removed by another process; it was made anew, its events are lost.");
        return;
    }
    // The shutdown came first.
    if (ownedQueue != record.id)
        msgctl(record.id, IPC_RMID, nullptr);
}

// Without its record nobody else finds the queue: decoderctl would say that no decoder runs, and no player could be
// started. It is looked at with every event, because the thread has no other moment; a player that fails is an event.
void keepRecord(int queue) {
    constexpr std::int64_t pause = 1'000'000; // a record that can't be written must not delay every event
    const std::int64_t now = gettimeusec();
    if (now < nextRestoration)
        return;
    const int restored = local::restoreEventQueueRecord(queue);
    if (restored < 0)
        nextRestoration = now + pause;
    if (restored > 0)
        logmsg(3, "The record of the event queue was lost; it was written again.");
    if (restored > 0 && removed) // the shutdown came first
        local::removeRunId(local::eventQueueName);
}

// True when an event came.
bool waitOnce(Event& event) {
    const int seen = attachments;
    const int queue = ownedQueue;
    if (removed) {
        attachments.wait(seen); // this process shuts down
        return false;
    }
    if (queue < 0) {
        renewQueue(queue);
        return false;
    }
    local::EventMessage message{};
    const std::ptrdiff_t length = local::takeMessage(queue, message, 0);
    if (length == sizeof(Event) && isKnown(message.event.id)) {
        event = message.event;
        keepRecord(queue);
        return true;
    }
    if (length >= 0)
        noteDropped();
    else if (errno != EINTR && !removed)
        renewQueue(queue);
    return false;
}

} // namespace

namespace local {

bool ownsEventQueue() {
    return isOwner();
}

} // namespace local

int initEventQueue() {
    libcommon::applianceRoot(); // senders in signal handlers must not be the first to read it
    // Set before the rest, because the owner waits for locks for a shorter time; kept when the rest fails, because
    // waitEvent() then keeps trying.
    owner = getpid();
    local::RunId record;
    const bool attached = local::attachEventQueue(record);
    if (!attached)
        logmsg(3, "Failed to attach to the event queue. (errno=%d %s)", errno, std::strerror(errno));
    ownedQueue = attached ? record.id : -1;
    removed = false;
    ++attachments;
    attachments.notify_all();
    return attached ? 0 : -1;
}

int waitEvent(Event* event) {
    if (event == nullptr) {
        errno = EINVAL;
        return -1;
    }
    while (isOwner())
        if (waitOnce(*event))
            return 0;
    errno = ENOENT;
    return -1;
}

int sendEvent(const Event* event) {
    if (event == nullptr || !isKnown(event->id)) {
        errno = EINVAL;
        return -1;
    }
    return isOwner() ? sendAsOwner(*event) : local::sendAsOutsider(*event);
}

void clearEventQueue() {
    const int queue = ownQueue();
    msqid_ds state{};
    if (queue < 0 || msgctl(queue, IPC_STAT, &state) != 0) {
        logmsg(3, "There is no event queue to clear. (errno=%d %s)", errno, std::strerror(errno));
        return;
    }
    local::EventMessage message{};
    // Reads only as many as were queued: senders could keep the queue from ever being empty.
    for (msgqnum_t i = 0; i < state.msg_qnum; ++i)
        if (local::takeMessage(queue, message, IPC_NOWAIT) < 0 && errno != EINTR)
            return;
}

void removeEventQueue() {
    const local::ErrnoKept errnoKept;
    if (!isOwner())
        return;
    removed = true; // first: a waiting thread that sees its queue go must not make a new one
    const int queue = ownedQueue.exchange(-1);
    if (queue < 0)
        return;
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

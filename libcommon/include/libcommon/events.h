// The appliance's events: anyone who wants something from the supervisor sends it one of these.
//
// One System V message queue per appliance carries them all, from other processes (select, alarm, lock, ...) and from
// the supervisor's own threads and signal handlers (timers, child exits, button). The supervisor alone creates the
// queue, waits on it and removes it; senders find its identifier in /run/decoder/events.id below the appliance root.
// Access is the appliance's user and group (mode 0660), not the world.
#pragma once

#include <cstdint>

enum EventId : std::int32_t {
    EID_CHILD = 2,                  // value 1 pid, value 2 wait status
    EID_BUTTON = 4,                 // value 2, low byte: 1 held, 0 a short press
    EID_TIMEOUT = 6,                // value 1 timer id
    EID_BARRIER = 7,                // value 1 pid of the player, value 2 barrier reached
    EID_ALARM = 8,                  // value 1 source index, payload: text
    EID_CONNECTPROPERTYCHANGED = 9, // "Decoder.Connected" was written
    EID_FLUSHCACHE = 10,            // forget what was detected
    EID_SELECT = 11,                // value 1 source index
    EID_LOCK = 12,                  // stop playback for ten seconds
    EID_RECONNECT = 13,             // end the lock now
    EID_OTHER = 65535,              // never sent: "every other" in a selection
};

// Thirteen 32-bit words, copied whole.
struct Event {
    std::int32_t id;
    std::int32_t value1;
    std::int32_t value2;
    std::int32_t payload[10]; // EID_ALARM: up to 39 bytes of UTF-8 and a NUL
};
static_assert(sizeof(Event) == 52);

// Attaches this process to the appliance's queue as its owner, creating the queue where there is none. 0, or -1 with a
// log line; waitEvent() then keeps trying.
int initEventQueue();

// Blocks until the next event arrives and copies it into *event; continues after signals. One thread of the owner calls
// it. Messages that are no events, or have an identifier outside 0 to 13, are dropped with at most one log line a
// minute. When the queue could not be made at start, or another process removes it, it is made again, with a log line;
// senders find the new one. After this process has called removeEventQueue() it does not return. 0, or -1 with errno:
// ENOENT in a process that is not the owner.
int waitEvent(Event* event);

// Sends a copy. 0, or -1 with errno: EINVAL an identifier outside 0 to 13, EPERM one that only
// the supervisor may send (EID_CHILD, EID_BUTTON, EID_TIMEOUT; EID_BARRIER without a barrier, or for another process),
// ENOENT no appliance runs here, EAGAIN the queue is full, EACCES this user is not the appliance's. A process other
// than the owner is refused once three quarters of the queue are taken (an announcement at a barrier: seven eighths),
// so that the supervisor's own events fit, and waits for other senders at most a quarter of a second (EAGAIN);
// announcements don't wait, and nobody but the owner waits for room. For the owner it is one msgsnd, repeated for up to a
// quarter of a second while the waiting thread makes a lost queue again, or makes room in one that senders without this
// library have filled. Any thread; safe in a signal handler.
int sendEvent(const Event* event);

// Drops the queued events. Owner only.
void clearEventQueue();

// Removes the queue from the system; senders get ENOENT from then on. Owner only; safe in a signal handler.
void removeEventQueue();

namespace libcommon {

inline constexpr int alarmTextBytes = 39;

// The pid of the process that owns the appliance's queue, the supervisor; -1 when none lives.
int eventQueueOwner();

// Puts `text` into the payload, cut at a UTF-8 character's start to at most alarmTextBytes.
void setEventText(Event& event, const char* text);

} // namespace libcommon

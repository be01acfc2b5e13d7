// Sending from processes that don't own the event queue.
#pragma once

#include <libcommon/events.h>

#include <cstddef>

namespace local {

// Puts one event into a queue without waiting. 0, or -1 with errno.
int putEvent(int queue, const Event& event);

// Writes the announcement of this process at barrier 0 or 1 to `at`, 64 bytes of memory that stays; putEvent() sends it from
// there from now on. Returns its address. Called before other threads exist.
const void* sealAnnouncement(int barrierId, void* at);

// Reads one message of any length: its length, or -1 with errno. `flags` as for msgrcv().
struct EventMessage {
    long type;
    Event event;
    char more; // longer than an event, so that a message that is none can be told
};
std::ptrdiff_t takeMessage(int queue, EventMessage& message, int flags);

// sendEvent() of any process but the owner. Safe in a signal handler.
int sendAsOutsider(const Event& event);

} // namespace local

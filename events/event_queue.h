// The internal event queue: what happened and was not yet dealt with.
//
// The event handler thread puts events in, in arrival order; the main thread takes them out selectively: for
// each identifier it says take, skip (stays for later) or discard. Each identifier may be queued only so many
// times; beyond that the newer event is dropped, never a queued one. One mutex guards it all; the taker alone
// waits.
#pragma once

#include <libcommon/events.h>

#include <cstddef>
#include <cstdint>

// (action << 16) | identifier; a list of them ends with a word of EID_OTHER: what holds for all others.
using SelectionWord = std::uint32_t;

inline constexpr std::uint32_t ACTION_TAKE = 1; // the same as 0
inline constexpr std::uint32_t ACTION_SKIP = 2;
inline constexpr std::uint32_t ACTION_DISCARD = 3;

constexpr SelectionWord selection(std::uint32_t action, std::uint32_t id) {
    return (action << 16) | id;
}
constexpr SelectionWord take(EventId id) {
    return selection(ACTION_TAKE, id);
}
constexpr SelectionWord discard(EventId id) {
    return selection(ACTION_DISCARD, id);
}
inline constexpr SelectionWord SKIP_OTHERS = selection(ACTION_SKIP, EID_OTHER); // 0x2ffff

inline constexpr int defaultQueueLimit = 256;

// The most events of that identifier that may be queued at once. Start-up.
void setQueueLimit(int id, int maximum);

// Appends a copy, within the identifier's limit. Main thread; wakes nobody.
void pushEvent(const Event& event);

// The event handler thread's append. Under the queue's lock, when the taker is not asleep in a blocking take,
// `takerIsBusy` is called with the event, whether it was appended or dropped. Then wakes the taker if
// appended.
void deliverEvent(const Event& event, void (*takerIsBusy)(const Event&));

// Drops every queued event; the limits stay. Main thread.
void flushEventQueue();

// The selective take. Walks from the oldest event; 0 with the taken event in *out, -1 for a malformed list
// (no EID_OTHER within 15 words) or, without `wait`, when nothing is to be taken; -2 when an event met has an
// unknown action. With `wait` it sleeps, signals let in, until an event comes. Main thread.
int takeEvent(Event* out, const SelectionWord* words, std::size_t count, bool wait);

// getNextEvent(&event, take(EID_CHILD), SKIP_OTHERS): the blocking form.
template<class... Words>
int getNextEvent(Event* out, Words... words) {
    const SelectionWord list[] = {static_cast<SelectionWord>(words)...};
    return takeEvent(out, list, sizeof...(words), true);
}

// The same without waiting.
template<class... Words>
int peekNextEvent(Event* out, Words... words) {
    const SelectionWord list[] = {static_cast<SelectionWord>(words)...};
    return takeEvent(out, list, sizeof...(words), false);
}

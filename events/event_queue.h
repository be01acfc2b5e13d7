// The internal event queue: events that the state machine has not handled yet.
//
// The event handler thread appends events in arrival order. The main thread takes them selectively: for each
// identifier it says take, skip (leave it for later) or discard. Each identifier has a limit on how many of its
// events may be queued; beyond it the newer event is dropped, never a queued one. The limit must not cost a player's
// arrival or exit, which comes only once: when one is dropped it is appended as soon as there is room again. One
// mutex guards everything; only the taker waits.
#pragma once

#include <libcommon/events.h>

#include <cstddef>
#include <cstdint>

// (action << 16) | identifier. A list ends with a word of EID_OTHER, which gives the action for all others.
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

// Sets how many events of that identifier may be queued at once. Main thread, at start-up.
void setQueueLimit(int id, int maximum);

// Appends a copy, within the identifier's limit. Main thread. Wakes no thread: the caller is the only taker.
void pushEvent(const Event& event);

// The event handler thread's append. When the taker does not sleep in a blocking take, `takerIsBusy` is called
// with the event under the queue's lock, whether the event was appended or dropped. Wakes the taker when the event
// was appended.
void deliverEvent(const Event& event, void (*takerIsBusy)(const Event&));

// Drops every queued event; the limits stay. Main thread.
void flushEventQueue();

// The selective take, from the oldest event to the newest. 0 with the taken event in *out. -1 for a malformed list
// (no EID_OTHER within 15 words) and, without `wait`, when there is nothing to take. -2 when the walk meets an event
// with an unknown action. With `wait` it sleeps until an event comes. Lets pending SIGINT and SIGCHLD in at its
// start and while it sleeps. Main thread.
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

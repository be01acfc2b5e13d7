// Events, timers and barriers for unit tests, linked in place of the events and barrier folders. The test fills the
// queue; nothing waits. Call fake::resetEvents() after fake::reset().
//
// Recorded in fake::calls as
//   getNextEvent(4,11,2)  peekNextEvent(12)
//   pushEvent(12,0,0)  flushEventQueue()  setQueueLimit(8,1)  setTimeout(10000)  masterBarrier(1,100,101)
//
// The takes list the identifiers that they take. "skip 4" and "discard 4" are the other actions; "others ..." is the
// end of a list that does not skip all others.
#pragma once

#include "barrier/master_barrier.h"
#include "events/event_queue.h"
#include "events/timers.h"
#include "tests/fakes/fake_libcommon.h"

#include <deque>
#include <functional>
#include <map>
#include <span>
#include <stdexcept>
#include <vector>

namespace fake {

// Thrown by a blocking take that would never end.
struct WouldBlock : std::logic_error {
    using std::logic_error::logic_error;
};

void resetEvents();

// The queue, oldest first. The takes honour take, skip and discard.
extern std::deque<Event> queue;

// Appends as the event handler thread does, within the identifier's limit. False when the event was dropped.
bool deliver(const Event& event);
extern std::map<int, int> queueLimits; // what setQueueLimit set

// Called when a blocking take finds nothing. It delivers something and returns true; false, the
// default, throws WouldBlock.
extern std::function<bool()> onWait;

extern std::vector<Event> taken; // every event that a take returned
extern int takeResult;           // not 0: every take fails with it

// Timers: ids count up from nextTimerId, which resetEvents sets to 65536. The other two are about the timer that
// was armed last.
extern int nextTimerId;
extern int lastTimerId;
extern std::int64_t lastTimeout; // milliseconds

// Barriers: the results of the next waits, 0 when the list is empty. The function, if set, takes their place.
extern std::deque<int> barrierResults;
extern std::function<int(int barrierId, std::span<const int> pids)> onMasterBarrier;

Event event(int id, int value1 = 0, int value2 = 0);

} // namespace fake

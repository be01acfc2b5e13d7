#include "events/event_queue.h"

#include "barrier/barrier_table.h"
#include "events/queue_counts.h"
#include "process/signal_mask.h"
#include "recorder/recorded.h"

#include <libcommon/log.h>

#include <algorithm>
#include <array>
#include <condition_variable>
#include <list>
#include <mutex>
#include <optional>
#include <vector>

namespace {

constexpr int identifiers = 14; // 0 to 13 can be queued
constexpr std::uint32_t actionUnset = 0;
constexpr std::size_t mostLate = 32; // two players live at a time, each with a few events

// All process-wide state of this file, guarded by `mutex`. Written by the main thread and the event handler thread.
struct Queue {
    std::mutex mutex;
    std::condition_variable appended;
    std::list<Event> events; // oldest first
    QueueCounts counts;
    std::vector<Event> late;   // players' events, dropped because forged ones filled the queue; oldest first
    bool takerWaiting = false; // true exactly while a blocking take sleeps on `appended`
};

// Never destroyed: the event handler thread still delivers events while the main thread exits.
Queue& queue() {
    static Queue& instance = *new Queue;
    return instance;
}

// What to do with an event, by identifier.
class ActionTable {
public:
    // Reads the words up to the one of EID_OTHER; nothing when it does not come within 15 words.
    static std::optional<ActionTable> read(const SelectionWord* words, std::size_t count) {
        ActionTable table;
        for (std::size_t i = 0; i < count; ++i) {
            const std::uint32_t action = words[i] >> 16 == 0 ? ACTION_TAKE : words[i] >> 16;
            const std::uint32_t id = words[i] & 0xffffU;
            if (id == EID_OTHER) {
                table.others_ = action;
                std::ranges::replace(table.actions_, actionUnset, action);
                return table;
            }
            if (id < identifiers)
                table.actions_[id] = action;
            if (i == identifiers)
                break;
        }
        return std::nullopt;
    }

    // An identifier outside the table is one of the others.
    std::uint32_t action(int id) const {
        return id < 0 || id >= identifiers ? others_ : actions_[static_cast<std::size_t>(id)];
    }

private:
    std::array<std::uint32_t, identifiers> actions_{}; // actionUnset: not listed
    std::uint32_t others_ = ACTION_SKIP;
};

bool append(Queue& q, const Event& event) {
    if (!q.counts.countUp(event.id))
        return false;
    q.events.push_back(event);
    return true;
}

// A player announces an arrival and ends only once. When forged events have filled the queue up to the
// identifier's limit, its event is dropped like any other, but it is remembered and appended when there is room.
// Otherwise the machine would wait for a player that has long arrived or ended.
void rememberLate(Queue& q, const Event& event) {
    const auto same = [&](const Event& other) {
        return other.id == event.id && other.value1 == event.value1 && other.value2 == event.value2;
    };
    const bool once = event.id == EID_BARRIER || event.id == EID_CHILD;
    if (once && isPlayer(event.value1) && q.late.size() < mostLate && std::ranges::none_of(q.late, same))
        q.late.push_back(event);
}

// Appends the late events that there is room for. True when there was one.
bool appendLate(Queue& q) {
    const std::size_t before = q.late.size();
    for (auto event = q.late.begin(); event != q.late.end();) {
        if (!append(q, *event)) {
            ++event;
            continue;
        }
        logmsg(7, "eventHandler() adding event to queue (id=%d, val=(%d,%d))", event->id, event->value1,
               event->value2);
        event = q.late.erase(event);
    }
    return q.late.size() < before;
}

// Logs the exit and drops the barrier whatever the action for the event is. Kept: both are repeated at every walk
// that skips the event, which is harmless.
void meetChild(const Event& event) {
    logmsg(7, "Got EID_CHILD from pid:%d\n", event.value1);
    dropBarrier(event.value1);
}

constexpr int nothingTaken = -1;
constexpr int illegalAction = -2;

// One walk from the oldest event to the newest: 0 with the event taken, nothingTaken or illegalAction.
int walk(Queue& q, const ActionTable& table, Event* out) {
    for (auto event = q.events.begin(); event != q.events.end();) {
        if (event->id == EID_CHILD)
            meetChild(*event);
        const std::uint32_t action = table.action(event->id);
        if (action == ACTION_SKIP) {
            ++event;
            continue;
        }
        if (action != ACTION_TAKE && action != ACTION_DISCARD) {
            logmsg(3, "getNextEvent(): illegal action");
            return illegalAction;
        }
        q.counts.countDown(event->id);
        if (action == ACTION_TAKE)
            *out = *event;
        event = q.events.erase(event);
        if (action == ACTION_TAKE)
            return 0;
    }
    return nothingTaken;
}

// Sleeps until an event comes. The mutex is held from the walk that found nothing until the sleep begins, so that no
// wake-up is lost. Signals are let in here, where queue and log are in a consistent state. A SIGCHLD handler that runs
// here only sends an event, which needs no lock of ours; a SIGINT handler never returns.
void sleepForEvent(Queue& q, std::unique_lock<std::mutex>& lock) {
    q.takerWaiting = true;
    {
        const OpenSignals open;
        q.appended.wait(lock);
    }
    q.takerWaiting = false;
}

// The take itself, of a list that can be read.
int takeFromQueue(Event* out, const ActionTable& table, bool wait) {
    // Let signals in here, too: during a flood of events a take never sleeps, and SIGINT and SIGCHLD would
    // stay pending.
    letSignalsIn();
    Queue& q = queue();
    std::unique_lock lock(q.mutex);
    for (;;) {
        appendLate(q);
        int result = walk(q, table, out);
        while (result == nothingTaken && appendLate(q))
            result = walk(q, table, out);
        if (result != nothingTaken || !wait)
            return result;
        sleepForEvent(q, lock);
    }
}

} // namespace

void setQueueLimit(int id, int maximum) {
    Queue& q = queue();
    const std::lock_guard lock(q.mutex);
    q.counts.setLimit(id, maximum);
}

void pushEvent(const Event& event) {
    Queue& q = queue();
    const std::lock_guard lock(q.mutex);
    if (append(q, event))
        logmsg(7, "eventHandler::pushEvent() pushing event to queue (id=%d)", event.id);
    else
        logmsg(7, "eventHandler::pushEvent() discarding event (event queue full id=%d max=%d)", event.id,
               q.counts.limit(event.id));
}

void deliverEvent(const Event& event, void (*takerIsBusy)(const Event&)) {
    Queue& q = queue();
    bool appended = false;
    {
        const std::lock_guard lock(q.mutex);
        appended = append(q, event);
        if (appended) {
            logmsg(7, "eventHandler() adding event to queue (id=%d, val=(%d,%d))", event.id, event.value1,
                   event.value2);
        } else {
            logmsg(7, "eventHandler() discarding event (event queue full id=%d max=%d)", event.id,
                   q.counts.limit(event.id));
            rememberLate(q, event);
        }
        // Under the lock: a taker that is busy now can't fall asleep before it is disturbed.
        if (!q.takerWaiting)
            takerIsBusy(event);
    }
    if (appended)
        q.appended.notify_one();
}

void flushEventQueue() {
    Queue& q = queue();
    const std::lock_guard lock(q.mutex);
    q.events.clear();
    q.late.clear();
    q.counts.clear();
}

int takeEvent(Event* out, const SelectionWord* words, std::size_t count, bool wait) {
    const std::optional<ActionTable> table = ActionTable::read(words, count);
    if (!table) {
        logmsg(3, "getNextEvent(): Seems to miss EID_OTHER");
        return -1;
    }
    return recorded::take(*out, wait, [&] { return takeFromQueue(out, *table, wait); });
}

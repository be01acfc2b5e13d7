// How a state waits, and the reactions that all waiting states share.
//
// A state lists the events that it handles; all others stay queued for a later state. What it lists but does
// not act on is dropped, and the state runs again. The main thread waits here, and nowhere else for events.
#pragma once

#include "events/event_queue.h"
#include "launcher/machine.h"

#include <optional>

// What a failed take costs: a line in the log and a second, so that a machine that cannot wait does not spin.
void reportFailedWait(int result);

// Waits for the next event of these identifiers. When it cannot, the event has id 0, which no state acts on.
template<class... Ids>
Event waitForEvent(Ids... ids) {
    Event event{};
    if (const int result = getNextEvent(&event, take(ids)..., SKIP_OTHERS); result < 0) {
        reportFailedWait(result);
        return Event{};
    }
    return event;
}

// Takes the oldest queued event of these identifiers, if there is one.
template<class... Ids>
std::optional<Event> takeIfQueued(Ids... ids) {
    Event event{};
    if (peekNextEvent(&event, take(ids)..., SKIP_OTHERS) < 0)
        return std::nullopt;
    return event;
}

bool isShortPress(const Event& event);
bool isLongPress(const Event& event);
bool isTimeout(const Event& event, int timerId);

// Whether the event is the end of the current (pending) player. If so, it is classified for that player's
// source.
bool currentPlayerEnded(const Event& event);
bool pendingPlayerEnded(const Event& event);

// The end of a player that is neither: a line in the log, nothing else.
void logUnknownChild(const Event& event);

// What every waiting state of both modes does about the events that its own list says nothing else about:
//   "Decoder.Connected" became no, lock, long press    stop playing
//   a child that is not the current player             logged
//   a timer of an earlier state, anything else         dropped
void reactAsEveryWaitingState(const Event& event);

// Whether the event is an alarm that may be shown. It then becomes the pending source and its text is kept;
// an alarm that comes before the last one's display time is over is dropped, as is anything that is no alarm.
bool passesAlarmGate(const Event& event);

// The alarm becomes the pending source, whatever was shown before it.
void takeAlarm(const Event& event);

// Waits together with these players until all have announced the barrier. False when one will not come: then
// its end is, or will be, among the queued events.
bool meetAtBarrier(int barrierId, int player);
bool meetAtBarrier(int barrierId, int firstPlayer, int secondPlayer);

// Tells the current player to stop at its next barrier.
void hangUpCurrentPlayer();

// Stops the current player: goes to `released` once it has passed its barrier, to `gone` when it exits before that.
// The exit of another child is logged, and the state runs again.
void stopCurrentPlayer(State released, State gone);

// Waits for the current player's exit, then goes to `gone`. The exit of another child is logged, and the state runs
// again.
void waitForCurrentPlayersExit(State gone);

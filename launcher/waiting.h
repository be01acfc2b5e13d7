// How a state waits, and the reactions that all waiting states share.
//
// A state lists the events that it handles; all others stay queued for a later state. A listed event without a
// reaction is dropped, and the state runs again. This is the only place where the main thread waits for events.
#pragma once

#include "events/event_queue.h"
#include "launcher/machine.h"

#include <optional>

// Logs a failed take and sleeps one second, so that a broken queue does not spin the loop.
void reportFailedWait(int result);

// Waits for the next event of these identifiers. After a failure the event has id 0, which no state reacts to.
template<class... Ids>
Event waitForEvent(Ids... ids) {
    Event event{};
    if (const int result = getNextEvent(&event, take(ids)..., SKIP_OTHERS); result < 0) {
        reportFailedWait(result);
        return Event{};
    }
    return event;
}

// Takes the oldest queued event of these identifiers. Does not wait.
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

// Whether the event is the exit of the current (pending) player. If so, the exit is classified for
// that player's source.
bool currentPlayerEnded(const Event& event);
bool pendingPlayerEnded(const Event& event);

// Logs the exit of an unknown child. Does nothing for other events.
void logUnknownChild(const Event& event);

// The default reactions that all waiting states share:
//   "Decoder.Connected" became no, lock, long press    stop playing
//   exit of a child that is not the current player     logged
//   a timer of an earlier state, any other event       dropped
void reactAsEveryWaitingState(const Event& event);

// Whether the event is an alarm that may be shown. If so, its source becomes the pending source and its text is kept.
// An alarm that comes before the display time of the last one is over is dropped.
bool passesAlarmGate(const Event& event);

// Takes the source, the text and the time of an alarm without a check.
void takeAlarm(const Event& event);

// Waits until all of these players have announced the barrier. False when one of them does not arrive: its exit is then
// queued, or will be.
bool meetAtBarrier(int barrierId, int player);
bool meetAtBarrier(int barrierId, int firstPlayer, int secondPlayer);

// Tells the current player to stop at its next barrier.
void hangUpCurrentPlayer();

// Stops the current player: goes to `released` once it has passed its barrier, to `gone` when it exits before that.
// The exit of another child is logged, and the state runs again.
void stopCurrentPlayer(State released, State gone);

// Waits for the current player's exit, then goes to `gone`. The exit of another child is logged, and the
// state runs again.
void waitForCurrentPlayersExit(State gone);

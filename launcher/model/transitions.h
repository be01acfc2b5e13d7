// The arrows between the states: which state may follow which, and when.
//
// The handlers do the work; this table declares what they may do. The tests hold every step of the machine
// against it, and the diagrams in docs/ are made from it. The compiler checks that every state is reached
// from the start and that from every state playback can still be stopped. A row from a state to itself
// declares an event that the state takes and that leaves it as it is.
#pragma once

#include "launcher/states.h"

#include <span>

// What moves the machine: the event that a state took, or none.
enum Trigger : int {
    BY_ITSELF,     // the state decides, or a barrier does
    SHORT_PRESS,   // EID_BUTTON
    LONG_PRESS,    // EID_BUTTON, held
    SELECT,        // EID_SELECT
    ALARM,         // EID_ALARM
    OWN_TIMER,     // EID_TIMEOUT with the id that the state waits for
    OTHER_TIMER,   // EID_TIMEOUT of an earlier timer
    CURRENT_EXIT,  // EID_CHILD of the current player
    PENDING_EXIT,  // EID_CHILD of the pending player
    OTHER_CHILD,   // EID_CHILD of neither
    TOLD_YES,      // EID_CONNECTPROPERTYCHANGED, "Decoder.Connected" is yes
    TOLD_NO,       // EID_CONNECTPROPERTYCHANGED, "Decoder.Connected" is no
    LOCK,          // EID_LOCK
    RECONNECT,     // EID_RECONNECT
    FLUSH_REQUEST, // EID_FLUSHCACHE
};

inline constexpr int triggerCount = 15;

struct Transition {
    State from;
    State to;
    Trigger trigger;
    const char* condition; // in words
};

// All of them, in the order of `from`; no two with equal from, to and trigger.
std::span<const Transition> transitions();

// The trigger in words.
const char* triggerName(Trigger trigger);

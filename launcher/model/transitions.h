// A model of the state machine: which state may follow which, and when.
//
// The program does not use this table; a change here changes no behaviour. The tests compare every step of the
// machine with it, and the diagrams in docs/ are made from it. The compiler checks that every state can be reached
// from the start and that playback can be stopped from every state. A row from a state to itself is an event that the
// state takes without leaving.
#pragma once

#include "launcher/states.h"

#include <span>

// The event that a state took, or none.
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

// All transitions, in the order of `from`; no two have equal from, to and trigger.
std::span<const Transition> transitions();

// The trigger in words.
const char* triggerName(Trigger trigger);

// The table of states: what runs in each of them, and to which group it belongs.
//
// One row a state, in the order of the numbers; the dispatch, the transition log, the diagrams and the tests
// read it. The compiler checks order, count and completeness.
#pragma once

#include "launcher/states.h"

#include <span>

using StateHandler = void (*)();

// States that belong together: one file of handlers and one diagram each.
enum StateGroup : int {
    GROUP_NONE,           // STATE_NULL
    GROUP_CONNECT,        // states_connect.cpp
    GROUP_DISCONNECTED,   // states_disconnected.cpp
    GROUP_REQUEST_FAILED, // states_request_failed.cpp
    GROUP_LAUNCH,         // states_launch.cpp
    GROUP_CRASH,          // states_crash.cpp
    GROUP_AUTO,           // states_auto.cpp
    GROUP_PAUSE,          // states_pause.cpp
    GROUP_MANUAL,         // states_manual.cpp
};

inline constexpr int stateGroupCount = 9;

struct StateRow {
    int number;
    const char* name;
    StateHandler handler; // null for STATE_NULL alone
    StateGroup group;
};

// The whole table; the position is the number.
std::span<const StateRow> stateTable();

// The state's name, "?" for a number that is no state's.
const char* stateName(int state);

// The state's handler, null for STATE_NULL and for a number that is no state's.
StateHandler stateHandler(int state);

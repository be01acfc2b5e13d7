// The table of states: the handler and the group of each state.
//
// One row for each state, in the order of the numbers. The dispatch, the transition log, the diagrams and the tests
// read it. The compiler checks order, count and completeness.
#pragma once

#include "launcher/states.h"

#include <span>

using StateHandler = void (*)();

// Each group has one file of handlers and one diagram.
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
    StateHandler handler; // null only for STATE_NULL
    StateGroup group;
};

// The whole table; the position is the number.
std::span<const StateRow> stateTable();

// The state's name; "?" for a number without a state.
const char* stateName(int state);

// The state's handler; null for STATE_NULL and for a number without a state.
StateHandler stateHandler(int state);

// The vocabulary of the page in transitions.cpp: from, to, stays, everyWaitingState.
#pragma once

#include "launcher/model/transitions.h"

#include <array>

namespace model {

// The triggers in words, in the order of the enumeration.
inline constexpr std::array triggerNames{
    "by itself",
    "short press",
    "long press",
    "select",
    "alarm",
    "its timer",
    "an earlier timer",
    "current player exits",
    "pending player exits",
    "another child exits",
    "told to connect",
    "told to disconnect",
    "lock",
    "reconnect",
    "flush the cache",
};
static_assert(triggerNames.size() == triggerCount);

// A line of the page.
enum class LineKind {
    From,      // the following lines leave this state
    To,        // one arrow
    Stays,     // one arrow that leaves the state as it is
    AllWaiting // the reactions that all waiting states share
};
struct Line {
    LineKind kind;
    State state; // the state that is left or reached
    Trigger trigger = BY_ITSELF;
    const char* condition = nullptr;
};

constexpr Line from(State state) {
    return {.kind = LineKind::From, .state = state};
}
constexpr Line to(State state, const char* condition) {
    return {.kind = LineKind::To, .state = state, .condition = condition};
}
constexpr Line to(State state, Trigger trigger, const char* condition = nullptr) {
    return {.kind = LineKind::To, .state = state, .trigger = trigger, .condition = condition};
}
constexpr Line stays(Trigger trigger, const char* condition = nullptr) {
    return {.kind = LineKind::Stays, .state = STATE_NULL, .trigger = trigger, .condition = condition};
}
constexpr Line everyWaitingState() {
    return {.kind = LineKind::AllWaiting, .state = STATE_NULL};
}

// The arrows of everyWaitingState().
inline constexpr std::array commonReactions{
    to(STOP_PLAYING, LONG_PRESS),
    to(STOP_PLAYING, TOLD_NO),
    to(STOP_PLAYING, LOCK),
    stays(TOLD_YES),
};

} // namespace model

#include "launcher/model/transitions.h"

#include "launcher/model/transition_lines.h"

#include <array>
#include <cstddef>

namespace {

using namespace model;

// clang-format off
constexpr Line page[] = {
    from(STATE_NULL),
        to(START_UL, "start"),

    from(START_UL),
        to(CONNECT, "connect at start"),
        to(DISCONNECTED, "stay disconnected"),

    from(CONNECT),
        to(REQUEST_ENCODER_TYPE, ALARM, "woken by an alarm"),
        to(REQUEST_ENCODER_TYPE, SELECT, "woken by a select"),
        to(REQUEST_ENCODER_TYPE, "first source"),
        to(DISCONNECTED, "no source in this mode"),

    from(DISCONNECTED),
        to(CONNECT, SHORT_PRESS),
        to(CONNECT, SELECT),
        to(CONNECT, TOLD_YES),
        to(CONNECT, ALARM, "alarm, manual mode configured"),
        to(FLUSH_CACHE, FLUSH_REQUEST),
        to(LOCKED, LOCK),
        stays(LONG_PRESS),
        stays(TOLD_NO),
        stays(ALARM, "alarm, other mode configured"),

    from(FLUSH_CACHE),
        to(DISCONNECTED, "cache flushed"),

    from(LOCKED),
        to(FLUSH_CACHE, RECONNECT),
        to(FLUSH_CACHE, OWN_TIMER, "lock timer"),
        stays(LOCK, "lock: the timer starts again"),
        stays(OTHER_TIMER),

    from(REQUEST_ENCODER_TYPE),
        to(FLUSH_CACHE_CONNECTED, FLUSH_REQUEST),
        to(AUTO_PAUSE, SHORT_PRESS, "short press in automatic mode, a player shows"),
        to(REQUEST_ENCODER_FAILED, "not detected"),
        to(LAUNCH_CURRENT_PLAYER_POS_WITH_NON_EXISTING, "detected, no player"),
        to(LAUNCH_PENDING_PLAYER, "detected, a player shows"),

    from(CURRENT_PLAYER_CRASHED_DURING_PLAYING),
        to(SET_SLEEP_1_TIMER, "always"),

    from(SEND_ONLY_PTZ),
        to(AUTO_START_TIMER, "automatic mode"),
        to(MANUAL_WAIT_FOR_NEW_SELECTION, "manual mode"),

    from(SELECT_SOURCE_ID),
        to(FLUSH_CACHE_CONNECTED, FLUSH_REQUEST),
        to(SEND_ONLY_PTZ, "the input that shows"),
        to(REQUEST_ENCODER_TYPE, "another input, or no player"),

    from(REQUEST_ENCODER_FAILED),
        to(SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED, "a player shows"),
        to(SET_SLEEP_10_TIMER, "no player, manual mode"),
        to(AUTO_SLEEP_AFTER_ENCODER_REQUEST_FAILED, "no player, automatic mode"),

    from(SET_SLEEP_10_TIMER),
        to(AUTO_WAIT_ERROR_SLEEP_EVENT, "automatic mode"),
        to(MANUAL_WAIT_ERROR_SLEEP_EVENT, "manual mode"),

    from(SET_SLEEP_1_TIMER),
        to(AUTO_WAIT_ERROR_SLEEP_EVENT, "automatic mode"),
        to(MANUAL_WAIT_ERROR_SLEEP_EVENT, "manual mode"),

    from(SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED),
        to(WAIT_SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED, "barrier 1 passed"),
        to(CURRENT_PLAYER_STOPPED_AFTER_REQUEST_FAILED, CURRENT_EXIT),
        stays(OTHER_CHILD),

    from(WAIT_SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED),
        to(CURRENT_PLAYER_STOPPED_AFTER_REQUEST_FAILED, CURRENT_EXIT),
        stays(OTHER_CHILD),

    from(CURRENT_PLAYER_STOPPED_AFTER_REQUEST_FAILED),
        to(REQUEST_ENCODER_FAILED, "always"),

    from(STOP_PLAYING),
        to(SHUTDOWN_CURRENT_PLAYER, "a player shows"),
        to(PLAYING_STOPPED, "no player"),

    from(SHUTDOWN_CURRENT_PLAYER),
        to(WAIT_DISCONNECT_SHUTDOWN, "barrier 1 passed"),
        to(PLAYING_STOPPED, CURRENT_EXIT),
        stays(OTHER_CHILD),

    from(WAIT_DISCONNECT_SHUTDOWN),
        to(PLAYING_STOPPED, CURRENT_EXIT),
        stays(OTHER_CHILD),

    from(PLAYING_STOPPED),
        to(DISCONNECTED, "always"),

    from(FLUSH_CACHE_CONNECTED),
        to(REQUEST_ENCODER_TYPE, "cache flushed"),

    from(LAUNCH_PENDING_PLAYER),
        to(WAIT_LAUNCHED_PENDING_PLAYER, "launched"),
        to(COULD_NOT_LAUNCH_PENDING_PLAYER, "not launched"),

    from(LAUNCH_CURRENT_PLAYER_POS_WITH_NON_EXISTING),
        to(WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING, "launched"),
        to(COULD_NOT_LAUNCH_PENDING_PLAYER, "not launched"),

    from(WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING),
        to(SINGLE_PLAYER_LAUNCHED, "barrier 0 passed"),
        to(COULD_NOT_LAUNCH_PENDING_PLAYER, PENDING_EXIT),
        stays(OTHER_CHILD),

    from(SINGLE_PLAYER_LAUNCHED),
        to(SINGLE_PLAYER_STARTED, "barrier 1 passed"),
        to(COULD_NOT_LAUNCH_PENDING_PLAYER, PENDING_EXIT),
        stays(OTHER_CHILD),

    from(SINGLE_PLAYER_STARTED),
        to(AUTO_START_TIMER, "automatic mode"),
        to(MANUAL_WAIT_FOR_NEW_SELECTION, "manual mode"),

    from(WAIT_LAUNCHED_PENDING_PLAYER),
        to(WAIT_SHUTDOWN_CURRENT_PLAYER, "barrier 0 passed"),
        to(COULD_NOT_LAUNCH_PENDING_PLAYER, PENDING_EXIT),
        to(CURRENT_PLAYER_CRASHED_DURING_PENDING_LAUNCH, CURRENT_EXIT),
        stays(OTHER_CHILD),

    from(COULD_NOT_LAUNCH_PENDING_PLAYER),
        to(CURRENT_PLAYER_CRASHED_DURING_PAUSE, "sequence paused"),
        to(SET_SLEEP_10_TIMER, "not paused"),

    from(WAIT_SHUTDOWN_CURRENT_PLAYER),
        to(SWITCH_PLAYER, "barrier 1 passed by both"),
        to(PENDING_PLAYER_CRASHED_STOPPING_CURRENT, PENDING_EXIT),
        to(CURRENT_PLAYER_CRASHED_DURING_SWITCH, CURRENT_EXIT),
        stays(OTHER_CHILD),

    from(SWITCH_PLAYER),
        to(WAIT_FOR_CURRENT_PLAYER_STOP_DURING_PENDING_CRASH, PENDING_EXIT),
        to(DONE_SWITCHED_PLAYER, CURRENT_EXIT),
        to(DONE_SWITCHED_PLAYER, OTHER_CHILD, "another child: taken as the current player"),

    from(DONE_SWITCHED_PLAYER),
        to(AUTO_START_TIMER, "automatic mode"),
        to(MANUAL_WAIT_FOR_NEW_SELECTION, "manual mode"),

    from(CURRENT_PLAYER_CRASHED_DURING_PENDING_LAUNCH),
        to(WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING, "the pending player continues to start"),

    from(CURRENT_PLAYER_CRASHED_DURING_SWITCH),
        to(DONE_SWITCHED_PLAYER, "barrier 1 passed"),
        to(BOTH_PLAYERS_DOWN_AFTER_PENDING_CRASH, PENDING_EXIT),
        stays(OTHER_CHILD),

    from(PENDING_PLAYER_CRASHED_STOPPING_CURRENT),
        to(WAIT_FOR_CURRENT_PLAYER_STOP_DURING_PENDING_CRASH, "barrier 1 passed"),
        to(BOTH_PLAYERS_DOWN_AFTER_PENDING_CRASH, CURRENT_EXIT),
        stays(OTHER_CHILD),

    from(WAIT_FOR_CURRENT_PLAYER_STOP_DURING_PENDING_CRASH),
        to(BOTH_PLAYERS_DOWN_AFTER_PENDING_CRASH, CURRENT_EXIT),
        stays(OTHER_CHILD),

    from(BOTH_PLAYERS_DOWN_AFTER_PENDING_CRASH),
        to(COULD_NOT_LAUNCH_PENDING_PLAYER, "always"),

    from(AUTO_START_TIMER),
        to(AUTO_PAUSE, "sequence paused"),
        to(AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT, "not paused"),

    from(AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT),
        to(AUTO_PAUSE, SHORT_PRESS),
        to(AUTO_DIRECT_SOURCE_SELECT, SELECT),
        to(AUTO_GOTO_NEXT_SOURCE, OWN_TIMER, "display time is over"),
        to(CURRENT_PLAYER_CRASHED_DURING_PLAYING, CURRENT_EXIT),
        everyWaitingState(),
        stays(OTHER_TIMER),
        stays(OTHER_CHILD),

    from(AUTO_DIRECT_SOURCE_SELECT),
        to(SELECT_SOURCE_ID, "always"),

    from(AUTO_GOTO_NEXT_SOURCE),
        to(SELECT_SOURCE_ID, "next source"),
        to(STOP_PLAYING, "empty sequence"),

    from(AUTO_SLEEP_AFTER_ENCODER_REQUEST_FAILED),
        to(AUTO_GOTO_NEXT_SOURCE, SHORT_PRESS),
        to(AUTO_GOTO_NEXT_SOURCE, OWN_TIMER, "sleep is over"),
        to(AUTO_DIRECT_SOURCE_SELECT, SELECT),
        everyWaitingState(),
        stays(OTHER_TIMER),

    from(AUTO_WAIT_ERROR_SLEEP_EVENT),
        to(AUTO_DIRECT_SOURCE_SELECT, SELECT),
        to(AUTO_CHECK_FOR_TIME_LEFT_RECONNECT, OWN_TIMER, "sleep is over"),
        everyWaitingState(),
        stays(SHORT_PRESS),
        stays(OTHER_TIMER),

    from(AUTO_CHECK_FOR_TIME_LEFT_RECONNECT),
        to(REQUEST_ENCODER_TYPE, "time left to detect again"),
        to(AUTO_GOTO_NEXT_SOURCE, "not enough time left"),

    from(AUTO_PAUSE),
        to(AUTO_GOTO_NEXT_SOURCE, SHORT_PRESS),
        to(AUTO_DIRECT_SOURCE_SELECT, SELECT),
        to(CURRENT_PLAYER_CRASHED_DURING_PAUSE, CURRENT_EXIT),
        everyWaitingState(),
        stays(OTHER_CHILD),

    from(CURRENT_PLAYER_CRASHED_DURING_PAUSE),
        to(SLEEP_AFTER_CRASH_DURING_PAUSE, "always"),

    from(SLEEP_AFTER_CRASH_DURING_PAUSE),
        to(AUTO_GOTO_NEXT_SOURCE, SHORT_PRESS),
        to(AUTO_DIRECT_SOURCE_SELECT, SELECT),
        to(REQUEST_ENCODER_AFTER_CRASH_DURING_PAUSE, OWN_TIMER, "sleep is over"),
        everyWaitingState(),
        stays(OTHER_TIMER),

    from(REQUEST_ENCODER_AFTER_CRASH_DURING_PAUSE),
        to(LAUNCH_CURRENT_PLAYER_POS_WITH_NON_EXISTING, "detected"),
        to(SLEEP_AFTER_CRASH_DURING_PAUSE, "not detected"),

    from(MANUAL_WAIT_FOR_NEW_SELECTION),
        to(MANUAL_ALARM, ALARM, "alarm passed"),
        to(MANUAL_GOTO_NEXT_SOURCE, SHORT_PRESS),
        to(MANUAL_DIRECT_SOURCE_SELECT, SELECT),
        to(CURRENT_PLAYER_CRASHED_DURING_PLAYING, CURRENT_EXIT),
        everyWaitingState(),
        stays(ALARM, "alarm too soon"),
        stays(OTHER_CHILD),

    from(MANUAL_ALARM),
        to(SELECT_SOURCE_ID, "always"),

    from(MANUAL_DIRECT_SOURCE_SELECT),
        to(SELECT_SOURCE_ID, "always"),

    from(MANUAL_GOTO_NEXT_SOURCE),
        to(SELECT_SOURCE_ID, "next source"),
        to(STOP_PLAYING, "empty sequence"),

    from(MANUAL_WAIT_ERROR_SLEEP_EVENT),
        to(MANUAL_GOTO_NEXT_SOURCE, SHORT_PRESS),
        to(MANUAL_DIRECT_SOURCE_SELECT, SELECT),
        to(MANUAL_ALARM, ALARM, "alarm passed"),
        to(REQUEST_ENCODER_TYPE, OWN_TIMER, "sleep is over"),
        everyWaitingState(),
        stays(ALARM, "alarm too soon"),
        stays(OTHER_TIMER),
};
// clang-format on

constexpr std::size_t arrowsOf(const Line& line) {
    switch (line.kind) {
    case LineKind::From:
        return 0;
    case LineKind::To:
    case LineKind::Stays:
        return 1;
    case LineKind::AllWaiting:
        return commonReactions.size();
    }
    return 0;
}

constexpr std::size_t countArrows() {
    std::size_t count = 0;
    for (const Line& line : page)
        count += arrowsOf(line);
    return count;
}

constexpr Transition arrowOf(State left, const Line& line) {
    const char* words =
        line.condition != nullptr ? line.condition : triggerNames[static_cast<std::size_t>(line.trigger)];
    return {left, line.kind == LineKind::Stays ? left : line.state, line.trigger, words};
}

constexpr auto makeTable() {
    std::array<Transition, countArrows()> table{};
    State left = STATE_NULL;
    std::size_t next = 0;
    for (const Line& line : page) {
        switch (line.kind) {
        case LineKind::From:
            left = line.state;
            break;
        case LineKind::To:
        case LineKind::Stays:
            table[next++] = arrowOf(left, line);
            break;
        case LineKind::AllWaiting:
            for (const Line& reaction : commonReactions)
                table[next++] = arrowOf(left, reaction);
            break;
        }
    }
    return table;
}

constexpr std::array table = makeTable();

constexpr bool everyStateLeftOnceInOrder() {
    int next = STATE_NULL;
    for (const Line& line : page)
        if (line.kind == LineKind::From && line.state != next++)
            return false;
    return next == stateCount;
}

constexpr bool noArrowTwice() {
    for (std::size_t i = 0; i < table.size(); ++i)
        for (std::size_t j = 0; j < i; ++j)
            if (table[i].from == table[j].from && table[i].to == table[j].to &&
                table[i].trigger == table[j].trigger)
                return false;
    return true;
}

// Whether chains of arrows link all states with `origin`: forwards from it, or backwards to it.
constexpr bool allLinked(State origin, bool forwards, State firstState) {
    std::array<bool, stateCount> linked{};
    linked[origin] = true;
    for (int round = 0; round < stateCount; ++round)
        for (const Transition& arrow : table) {
            const State near = forwards ? arrow.from : arrow.to;
            const State far = forwards ? arrow.to : arrow.from;
            if (linked[near])
                linked[far] = true;
        }
    for (int state = firstState; state < stateCount; ++state)
        if (!linked[static_cast<std::size_t>(state)])
            return false;
    return true;
}

static_assert(everyStateLeftOnceInOrder(), "one from() for each state, in the order of the states");
static_assert(noArrowTwice(), "an arrow is declared twice");
static_assert(allLinked(STATE_NULL, true, START_UL), "a state is never reached");
static_assert(allLinked(DISCONNECTED, false, START_UL),
              "there is a state from which playback cannot be stopped");

} // namespace

std::span<const Transition> transitions() {
    return table;
}

const char* triggerName(Trigger trigger) {
    return triggerNames[static_cast<std::size_t>(trigger)];
}

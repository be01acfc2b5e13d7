#include "tests/walk/table.h"

#include <algorithm>
#include <sstream>

namespace walk {

namespace {

constexpr bool unreachable = false;

const std::vector<Arrow> table{
    {"NULL", "START_UL", "the machine begins"},
    {"START_UL", "CONNECT", "Decoder.AutoConnect is yes"},
    {"START_UL", "DISCONNECTED", "otherwise"},
    {"CONNECT", "REQUEST_ENCODER_TYPE", "a source was chosen"},
    {"CONNECT", "DISCONNECTED", "no source in this mode, 2 s later"},

    {"DISCONNECTED", "CONNECT", "short press, select, connected is yes, alarm in manual mode"},
    {"DISCONNECTED", "FLUSH_CACHE", "flush"},
    {"DISCONNECTED", "LOCKED", "lock"},
    {"FLUSH_CACHE", "DISCONNECTED", "always"},
    {"LOCKED", "FLUSH_CACHE", "reconnect, 10 s after the last lock"},

    {"REQUEST_ENCODER_TYPE", "FLUSH_CACHE_CONNECTED", "flush is queued"},
    {"REQUEST_ENCODER_TYPE", "AUTO_PAUSE", "short press is queued, auto, a player runs"},
    {"REQUEST_ENCODER_TYPE", "REQUEST_ENCODER_FAILED", "not detected"},
    {"REQUEST_ENCODER_TYPE", "LAUNCH_CURRENT_PLAYER_POS_WITH_NON_EXISTING", "detected, no player"},
    {"REQUEST_ENCODER_TYPE", "LAUNCH_PENDING_PLAYER", "detected, a player runs"},
    {"FLUSH_CACHE_CONNECTED", "REQUEST_ENCODER_TYPE", "always"},
    {"SELECT_SOURCE_ID", "FLUSH_CACHE_CONNECTED", "flush is queued"},
    {"SELECT_SOURCE_ID", "SEND_ONLY_PTZ", "the same encoder input"},
    {"SELECT_SOURCE_ID", "REQUEST_ENCODER_TYPE", "another encoder input, or no player"},
    {"SEND_ONLY_PTZ", "AUTO_START_TIMER", "auto"},
    {"SEND_ONLY_PTZ", "MANUAL_WAIT_FOR_NEW_SELECTION", "manual"},

    {"STOP_PLAYING", "SHUTDOWN_CURRENT_PLAYER", "a player runs"},
    {"STOP_PLAYING", "PLAYING_STOPPED", "no player"},
    {"SHUTDOWN_CURRENT_PLAYER", "WAIT_DISCONNECT_SHUTDOWN", "barrier 1"},
    {"SHUTDOWN_CURRENT_PLAYER", "PLAYING_STOPPED", "the player ended before the barrier"},
    {"WAIT_DISCONNECT_SHUTDOWN", "PLAYING_STOPPED", "the player ended"},
    {"PLAYING_STOPPED", "DISCONNECTED", "always"},

    {"LAUNCH_CURRENT_PLAYER_POS_WITH_NON_EXISTING", "WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING",
     "launched"},
    {"LAUNCH_CURRENT_PLAYER_POS_WITH_NON_EXISTING", "COULD_NOT_LAUNCH_PENDING_PLAYER", "the fork failed",
     unreachable},
    {"WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING", "SINGLE_PLAYER_LAUNCHED", "barrier 0"},
    {"WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING", "COULD_NOT_LAUNCH_PENDING_PLAYER", "it ended"},
    {"SINGLE_PLAYER_LAUNCHED", "SINGLE_PLAYER_STARTED", "barrier 1"},
    {"SINGLE_PLAYER_LAUNCHED", "COULD_NOT_LAUNCH_PENDING_PLAYER", "it ended"},
    {"SINGLE_PLAYER_STARTED", "AUTO_START_TIMER", "auto"},
    {"SINGLE_PLAYER_STARTED", "MANUAL_WAIT_FOR_NEW_SELECTION", "manual"},

    {"LAUNCH_PENDING_PLAYER", "WAIT_LAUNCHED_PENDING_PLAYER", "launched"},
    {"LAUNCH_PENDING_PLAYER", "COULD_NOT_LAUNCH_PENDING_PLAYER", "the fork failed", unreachable},
    {"WAIT_LAUNCHED_PENDING_PLAYER", "WAIT_SHUTDOWN_CURRENT_PLAYER", "barrier 0"},
    {"WAIT_LAUNCHED_PENDING_PLAYER", "COULD_NOT_LAUNCH_PENDING_PLAYER", "the pending player ended"},
    {"WAIT_LAUNCHED_PENDING_PLAYER", "CURRENT_PLAYER_CRASHED_DURING_PENDING_LAUNCH",
     "the current player ended"},
    {"WAIT_SHUTDOWN_CURRENT_PLAYER", "SWITCH_PLAYER", "barrier 1 of both"},
    {"WAIT_SHUTDOWN_CURRENT_PLAYER", "PENDING_PLAYER_CRASHED_STOPPING_CURRENT", "the pending player ended"},
    {"WAIT_SHUTDOWN_CURRENT_PLAYER", "CURRENT_PLAYER_CRASHED_DURING_SWITCH", "the current player ended"},
    {"SWITCH_PLAYER", "WAIT_FOR_CURRENT_PLAYER_STOP_DURING_PENDING_CRASH", "the pending player ended"},
    {"SWITCH_PLAYER", "DONE_SWITCHED_PLAYER", "any other child ended"},
    {"DONE_SWITCHED_PLAYER", "AUTO_START_TIMER", "auto"},
    {"DONE_SWITCHED_PLAYER", "MANUAL_WAIT_FOR_NEW_SELECTION", "manual"},

    {"CURRENT_PLAYER_CRASHED_DURING_PENDING_LAUNCH", "WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING",
     "always"},
    {"CURRENT_PLAYER_CRASHED_DURING_SWITCH", "DONE_SWITCHED_PLAYER",
     "barrier 1 of the pending player, 2 s later"},
    {"CURRENT_PLAYER_CRASHED_DURING_SWITCH", "BOTH_PLAYERS_DOWN_AFTER_PENDING_CRASH",
     "the pending player ended"},
    {"PENDING_PLAYER_CRASHED_STOPPING_CURRENT", "WAIT_FOR_CURRENT_PLAYER_STOP_DURING_PENDING_CRASH",
     "barrier 1 of the current player"},
    {"PENDING_PLAYER_CRASHED_STOPPING_CURRENT", "BOTH_PLAYERS_DOWN_AFTER_PENDING_CRASH",
     "the current player ended"},
    {"WAIT_FOR_CURRENT_PLAYER_STOP_DURING_PENDING_CRASH", "BOTH_PLAYERS_DOWN_AFTER_PENDING_CRASH",
     "the current player ended"},
    {"BOTH_PLAYERS_DOWN_AFTER_PENDING_CRASH", "COULD_NOT_LAUNCH_PENDING_PLAYER", "always"},
    {"COULD_NOT_LAUNCH_PENDING_PLAYER", "CURRENT_PLAYER_CRASHED_DURING_PAUSE", "paused, auto"},
    {"COULD_NOT_LAUNCH_PENDING_PLAYER", "SET_SLEEP_10_TIMER", "otherwise"},
    {"CURRENT_PLAYER_CRASHED_DURING_PLAYING", "SET_SLEEP_1_TIMER", "always"},

    {"REQUEST_ENCODER_FAILED", "SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED", "a player runs"},
    {"REQUEST_ENCODER_FAILED", "SET_SLEEP_10_TIMER", "manual"},
    {"REQUEST_ENCODER_FAILED", "AUTO_SLEEP_AFTER_ENCODER_REQUEST_FAILED", "auto"},
    {"SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED", "WAIT_SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED",
     "barrier 1"},
    {"SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED", "CURRENT_PLAYER_STOPPED_AFTER_REQUEST_FAILED",
     "it ended before the barrier"},
    {"WAIT_SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED", "CURRENT_PLAYER_STOPPED_AFTER_REQUEST_FAILED",
     "it ended"},
    {"CURRENT_PLAYER_STOPPED_AFTER_REQUEST_FAILED", "REQUEST_ENCODER_FAILED", "always"},
    {"SET_SLEEP_10_TIMER", "MANUAL_WAIT_ERROR_SLEEP_EVENT", "manual"},
    {"SET_SLEEP_10_TIMER", "AUTO_WAIT_ERROR_SLEEP_EVENT", "auto"},
    {"SET_SLEEP_1_TIMER", "MANUAL_WAIT_ERROR_SLEEP_EVENT", "manual"},
    {"SET_SLEEP_1_TIMER", "AUTO_WAIT_ERROR_SLEEP_EVENT", "auto"},

    {"AUTO_START_TIMER", "AUTO_PAUSE", "paused"},
    {"AUTO_START_TIMER", "AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT", "otherwise"},
    {"AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT", "AUTO_PAUSE", "short press"},
    {"AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT", "AUTO_DIRECT_SOURCE_SELECT", "select"},
    {"AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT", "AUTO_GOTO_NEXT_SOURCE", "its timer"},
    {"AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT", "CURRENT_PLAYER_CRASHED_DURING_PLAYING", "the player ended"},
    {"AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT", "STOP_PLAYING", "long press, lock, connected is no"},
    {"AUTO_DIRECT_SOURCE_SELECT", "SELECT_SOURCE_ID", "always"},
    {"AUTO_GOTO_NEXT_SOURCE", "SELECT_SOURCE_ID", "the sequence has sources"},
    {"AUTO_GOTO_NEXT_SOURCE", "STOP_PLAYING", "the sequence is empty"},
    {"AUTO_PAUSE", "AUTO_GOTO_NEXT_SOURCE", "short press"},
    {"AUTO_PAUSE", "AUTO_DIRECT_SOURCE_SELECT", "select"},
    {"AUTO_PAUSE", "CURRENT_PLAYER_CRASHED_DURING_PAUSE", "the player ended"},
    {"AUTO_PAUSE", "STOP_PLAYING", "long press, lock, connected is no"},
    {"CURRENT_PLAYER_CRASHED_DURING_PAUSE", "SLEEP_AFTER_CRASH_DURING_PAUSE", "always"},
    {"SLEEP_AFTER_CRASH_DURING_PAUSE", "AUTO_GOTO_NEXT_SOURCE", "short press"},
    {"SLEEP_AFTER_CRASH_DURING_PAUSE", "AUTO_DIRECT_SOURCE_SELECT", "select"},
    {"SLEEP_AFTER_CRASH_DURING_PAUSE", "REQUEST_ENCODER_AFTER_CRASH_DURING_PAUSE", "its timer"},
    {"SLEEP_AFTER_CRASH_DURING_PAUSE", "STOP_PLAYING", "long press, lock, connected is no"},
    {"REQUEST_ENCODER_AFTER_CRASH_DURING_PAUSE", "LAUNCH_CURRENT_PLAYER_POS_WITH_NON_EXISTING", "detected"},
    {"REQUEST_ENCODER_AFTER_CRASH_DURING_PAUSE", "SLEEP_AFTER_CRASH_DURING_PAUSE", "not detected"},
    {"AUTO_SLEEP_AFTER_ENCODER_REQUEST_FAILED", "AUTO_GOTO_NEXT_SOURCE", "short press, its timer"},
    {"AUTO_SLEEP_AFTER_ENCODER_REQUEST_FAILED", "AUTO_DIRECT_SOURCE_SELECT", "select"},
    {"AUTO_SLEEP_AFTER_ENCODER_REQUEST_FAILED", "STOP_PLAYING", "long press, lock, connected is no"},
    {"AUTO_WAIT_ERROR_SLEEP_EVENT", "AUTO_DIRECT_SOURCE_SELECT", "select"},
    {"AUTO_WAIT_ERROR_SLEEP_EVENT", "AUTO_CHECK_FOR_TIME_LEFT_RECONNECT", "its timer"},
    {"AUTO_WAIT_ERROR_SLEEP_EVENT", "STOP_PLAYING", "long press, lock, connected is no"},
    {"AUTO_CHECK_FOR_TIME_LEFT_RECONNECT", "REQUEST_ENCODER_TYPE", "time for one more detection"},
    {"AUTO_CHECK_FOR_TIME_LEFT_RECONNECT", "AUTO_GOTO_NEXT_SOURCE", "not"},

    {"MANUAL_WAIT_FOR_NEW_SELECTION", "MANUAL_ALARM", "alarm"},
    {"MANUAL_WAIT_FOR_NEW_SELECTION", "MANUAL_GOTO_NEXT_SOURCE", "short press"},
    {"MANUAL_WAIT_FOR_NEW_SELECTION", "MANUAL_DIRECT_SOURCE_SELECT", "select"},
    {"MANUAL_WAIT_FOR_NEW_SELECTION", "CURRENT_PLAYER_CRASHED_DURING_PLAYING", "the player ended"},
    {"MANUAL_WAIT_FOR_NEW_SELECTION", "STOP_PLAYING", "long press, lock, connected is no"},
    {"MANUAL_ALARM", "SELECT_SOURCE_ID", "always"},
    {"MANUAL_DIRECT_SOURCE_SELECT", "SELECT_SOURCE_ID", "always"},
    {"MANUAL_GOTO_NEXT_SOURCE", "SELECT_SOURCE_ID", "the sequence has sources"},
    {"MANUAL_GOTO_NEXT_SOURCE", "STOP_PLAYING", "the sequence is empty"},
    {"MANUAL_WAIT_ERROR_SLEEP_EVENT", "MANUAL_GOTO_NEXT_SOURCE", "short press"},
    {"MANUAL_WAIT_ERROR_SLEEP_EVENT", "MANUAL_DIRECT_SOURCE_SELECT", "select"},
    {"MANUAL_WAIT_ERROR_SLEEP_EVENT", "MANUAL_ALARM", "alarm"},
    {"MANUAL_WAIT_ERROR_SLEEP_EVENT", "REQUEST_ENCODER_TYPE", "its timer"},
    {"MANUAL_WAIT_ERROR_SLEEP_EVENT", "STOP_PLAYING", "long press, lock, connected is no"},
};

} // namespace

const std::vector<Arrow>& arrows() {
    return table;
}

bool isArrow(const std::string& from, const std::string& to) {
    return std::ranges::any_of(table,
                               [&](const Arrow& arrow) { return arrow.from == from && arrow.to == to; });
}

bool isResting(const std::string& state) {
    static const std::set<std::string> resting{"DISCONNECTED",
                                               "LOCKED",
                                               "AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT",
                                               "AUTO_PAUSE",
                                               "SLEEP_AFTER_CRASH_DURING_PAUSE",
                                               "AUTO_SLEEP_AFTER_ENCODER_REQUEST_FAILED",
                                               "AUTO_WAIT_ERROR_SLEEP_EVENT",
                                               "MANUAL_WAIT_FOR_NEW_SELECTION",
                                               "MANUAL_WAIT_ERROR_SLEEP_EVENT"};
    return resting.contains(state);
}

std::string describe(const Coverage& seen) {
    std::set<std::string> all;
    std::set<std::string> entered;
    std::size_t possible = 0;
    std::ostringstream missing;
    for (const Arrow& arrow : table) {
        all.insert(arrow.to);
        possible += arrow.reachable ? 1U : 0U;
        if (seen.contains({arrow.from, arrow.to})) {
            entered.insert(arrow.to);
        } else if (arrow.reachable) {
            missing << "    not seen: " << arrow.from << " -> " << arrow.to << " (" << arrow.why << ")\n";
        }
    }
    std::ostringstream text;
    text << "states " << entered.size() << " of " << all.size() << ", arrows " << seen.size() << " of "
         << possible << " (" << table.size() - possible << " more cannot be caused by a walk)\n"
         << missing.str();
    return text.str();
}

} // namespace walk

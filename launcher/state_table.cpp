#include "launcher/state_table.h"

#include "launcher/handlers.h"

#include <array>
#include <string_view>

namespace {

// A handler has the name of its state in lower camel case: selectSourceId for SELECT_SOURCE_ID.
constexpr bool isNamedAfter(std::string_view handler, std::string_view state) {
    std::size_t next = 0;
    bool capital = false;
    for (const char c : state) {
        if (c == '_') {
            capital = true;
            continue;
        }
        const bool letter = c >= 'A' && c <= 'Z';
        const char expected = letter && !capital ? static_cast<char>(c - 'A' + 'a') : c;
        if (next == handler.size() || handler[next++] != expected)
            return false;
        capital = false;
    }
    return next == handler.size();
}

// A row with the wrong number or handler gets the number -1, which inOrder() rejects.
#define ROW(number, state, handler, group)                                                                   \
    StateRow {                                                                                               \
        (number) == (state) && isNamedAfter(#handler, #state) ? (number) : -1, #state, states::handler,      \
            group                                                                                            \
    }

// clang-format off
constexpr std::array table{
    StateRow{0, "NULL", nullptr, GROUP_NONE},
    ROW( 1, START_UL,                                           startUl,                                     GROUP_CONNECT),
    ROW( 2, CONNECT,                                            connect,                                     GROUP_CONNECT),
    ROW( 3, DISCONNECTED,                                       disconnected,                                GROUP_DISCONNECTED),
    ROW( 4, FLUSH_CACHE,                                        flushCache,                                  GROUP_DISCONNECTED),
    ROW( 5, LOCKED,                                             locked,                                      GROUP_DISCONNECTED),
    ROW( 6, REQUEST_ENCODER_TYPE,                               requestEncoderType,                          GROUP_CONNECT),
    ROW( 7, CURRENT_PLAYER_CRASHED_DURING_PLAYING,              currentPlayerCrashedDuringPlaying,           GROUP_CRASH),
    ROW( 8, SEND_ONLY_PTZ,                                      sendOnlyPtz,                                 GROUP_CONNECT),
    ROW( 9, SELECT_SOURCE_ID,                                   selectSourceId,                              GROUP_CONNECT),
    ROW(10, REQUEST_ENCODER_FAILED,                             requestEncoderFailed,                        GROUP_REQUEST_FAILED),
    ROW(11, SET_SLEEP_10_TIMER,                                 setSleep10Timer,                             GROUP_REQUEST_FAILED),
    ROW(12, SET_SLEEP_1_TIMER,                                  setSleep1Timer,                              GROUP_REQUEST_FAILED),
    ROW(13, SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED,       shutdownCurrentPlayerAfterRequestFailed,     GROUP_REQUEST_FAILED),
    ROW(14, WAIT_SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED,  waitShutdownCurrentPlayerAfterRequestFailed, GROUP_REQUEST_FAILED),
    ROW(15, CURRENT_PLAYER_STOPPED_AFTER_REQUEST_FAILED,        currentPlayerStoppedAfterRequestFailed,      GROUP_REQUEST_FAILED),
    ROW(16, STOP_PLAYING,                                       stopPlaying,                                 GROUP_DISCONNECTED),
    ROW(17, SHUTDOWN_CURRENT_PLAYER,                            shutdownCurrentPlayer,                       GROUP_DISCONNECTED),
    ROW(18, WAIT_DISCONNECT_SHUTDOWN,                           waitDisconnectShutdown,                      GROUP_DISCONNECTED),
    ROW(19, PLAYING_STOPPED,                                    playingStopped,                              GROUP_DISCONNECTED),
    ROW(20, FLUSH_CACHE_CONNECTED,                              flushCacheConnected,                         GROUP_CONNECT),
    ROW(21, LAUNCH_PENDING_PLAYER,                              launchPendingPlayer,                         GROUP_LAUNCH),
    ROW(22, LAUNCH_CURRENT_PLAYER_POS_WITH_NON_EXISTING,        launchCurrentPlayerPosWithNonExisting,       GROUP_LAUNCH),
    ROW(23, WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING, waitLaunchedCurrentPlayerPosWithNonExisting, GROUP_LAUNCH),
    ROW(24, SINGLE_PLAYER_LAUNCHED,                             singlePlayerLaunched,                        GROUP_LAUNCH),
    ROW(25, SINGLE_PLAYER_STARTED,                              singlePlayerStarted,                         GROUP_LAUNCH),
    ROW(26, WAIT_LAUNCHED_PENDING_PLAYER,                       waitLaunchedPendingPlayer,                   GROUP_LAUNCH),
    ROW(27, COULD_NOT_LAUNCH_PENDING_PLAYER,                    couldNotLaunchPendingPlayer,                 GROUP_CRASH),
    ROW(28, WAIT_SHUTDOWN_CURRENT_PLAYER,                       waitShutdownCurrentPlayer,                   GROUP_LAUNCH),
    ROW(29, SWITCH_PLAYER,                                      switchPlayer,                                GROUP_LAUNCH),
    ROW(30, DONE_SWITCHED_PLAYER,                               doneSwitchedPlayer,                          GROUP_LAUNCH),
    ROW(31, CURRENT_PLAYER_CRASHED_DURING_PENDING_LAUNCH,       currentPlayerCrashedDuringPendingLaunch,     GROUP_CRASH),
    ROW(32, CURRENT_PLAYER_CRASHED_DURING_SWITCH,               currentPlayerCrashedDuringSwitch,            GROUP_CRASH),
    ROW(33, PENDING_PLAYER_CRASHED_STOPPING_CURRENT,            pendingPlayerCrashedStoppingCurrent,         GROUP_CRASH),
    ROW(34, WAIT_FOR_CURRENT_PLAYER_STOP_DURING_PENDING_CRASH,  waitForCurrentPlayerStopDuringPendingCrash,  GROUP_CRASH),
    ROW(35, BOTH_PLAYERS_DOWN_AFTER_PENDING_CRASH,              bothPlayersDownAfterPendingCrash,            GROUP_CRASH),
    ROW(36, AUTO_START_TIMER,                                   autoStartTimer,                              GROUP_AUTO),
    ROW(37, AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT,                  autoWaitForNextSourceTimeout,                GROUP_AUTO),
    ROW(38, AUTO_DIRECT_SOURCE_SELECT,                          autoDirectSourceSelect,                      GROUP_AUTO),
    ROW(39, AUTO_GOTO_NEXT_SOURCE,                              autoGotoNextSource,                          GROUP_AUTO),
    ROW(40, AUTO_SLEEP_AFTER_ENCODER_REQUEST_FAILED,            autoSleepAfterEncoderRequestFailed,          GROUP_AUTO),
    ROW(41, AUTO_WAIT_ERROR_SLEEP_EVENT,                        autoWaitErrorSleepEvent,                     GROUP_AUTO),
    ROW(42, AUTO_CHECK_FOR_TIME_LEFT_RECONNECT,                 autoCheckForTimeLeftReconnect,               GROUP_AUTO),
    ROW(43, AUTO_PAUSE,                                         autoPause,                                   GROUP_PAUSE),
    ROW(44, CURRENT_PLAYER_CRASHED_DURING_PAUSE,                currentPlayerCrashedDuringPause,             GROUP_PAUSE),
    ROW(45, SLEEP_AFTER_CRASH_DURING_PAUSE,                     sleepAfterCrashDuringPause,                  GROUP_PAUSE),
    ROW(46, REQUEST_ENCODER_AFTER_CRASH_DURING_PAUSE,           requestEncoderAfterCrashDuringPause,         GROUP_PAUSE),
    ROW(47, MANUAL_WAIT_FOR_NEW_SELECTION,                      manualWaitForNewSelection,                   GROUP_MANUAL),
    ROW(48, MANUAL_ALARM,                                       manualAlarm,                                 GROUP_MANUAL),
    ROW(49, MANUAL_DIRECT_SOURCE_SELECT,                        manualDirectSourceSelect,                    GROUP_MANUAL),
    ROW(50, MANUAL_GOTO_NEXT_SOURCE,                            manualGotoNextSource,                        GROUP_MANUAL),
    ROW(51, MANUAL_WAIT_ERROR_SLEEP_EVENT,                      manualWaitErrorSleepEvent,                   GROUP_MANUAL),
};
// clang-format on

#undef ROW

constexpr bool inOrder() {
    for (int i = 0; i < static_cast<int>(table.size()); ++i)
        if (table[static_cast<std::size_t>(i)].number != i)
            return false;
    return true;
}

constexpr bool inGroups() {
    for (const StateRow& row : table)
        if ((row.number == STATE_NULL) != (row.group == GROUP_NONE))
            return false;
    return true;
}

static_assert(table.size() == stateCount, "a row is missing, or there is one too many");
static_assert(inOrder(), "a row is in the place of another state, or has the handler of another state");
static_assert(inGroups(), "every state but NULL has a group");

bool isState(int state) {
    return state >= 0 && state < stateCount;
}

} // namespace

std::span<const StateRow> stateTable() {
    return table;
}

const char* stateName(int state) {
    return isState(state) ? table[static_cast<std::size_t>(state)].name : "?";
}

StateHandler stateHandler(int state) {
    return isState(state) ? table[static_cast<std::size_t>(state)].handler : nullptr;
}

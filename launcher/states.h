// The states of the playback machine.
//
// Names and numbers appear in the transition log and never change. state_table.cpp has the handler of each state.
#pragma once

// clang-format off
enum State : int {
    STATE_NULL = 0,                 // before the machine runs; logged as "NULL", never dispatched

    START_UL = 1,                   // decides whether to connect at start
    CONNECT = 2,                    // reads mode and sources, picks the first source
    DISCONNECTED = 3,               // no playback; waits to be connected
    FLUSH_CACHE = 4,                // forgets what was detected, while disconnected
    LOCKED = 5,                     // no playback for ten seconds after the last lock
    REQUEST_ENCODER_TYPE = 6,       // makes sure that the pending source is detected
    CURRENT_PLAYER_CRASHED_DURING_PLAYING = 7, // the current player exited while it played
    SEND_ONLY_PTZ = 8,              // the same encoder input: only a PTZ goto
    SELECT_SOURCE_ID = 9,           // a PTZ goto, or a new player?

    REQUEST_ENCODER_FAILED = 10,    // the pending source could not be detected
    SET_SLEEP_10_TIMER = 11,        // arms the long error sleep
    SET_SLEEP_1_TIMER = 12,         // arms the short error sleep
    SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED = 13,      // stops the current player after a failed detection
    WAIT_SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED = 14, // waits for that player's exit
    CURRENT_PLAYER_STOPPED_AFTER_REQUEST_FAILED = 15,       // that player is gone

    STOP_PLAYING = 16,              // clears the pause and stops the current player
    SHUTDOWN_CURRENT_PLAYER = 17,   // sends the current player SIGHUP and waits at its barrier
    WAIT_DISCONNECT_SHUTDOWN = 18,  // waits for the current player's exit
    PLAYING_STOPPED = 19,           // forgets players and sources

    FLUSH_CACHE_CONNECTED = 20,     // forgets what was detected, then detects again

    LAUNCH_PENDING_PLAYER = 21,     // starts the pending player behind the current one
    LAUNCH_CURRENT_PLAYER_POS_WITH_NON_EXISTING = 22,        // starts a player without a current one
    WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING = 23, // waits for that player's first barrier
    SINGLE_PLAYER_LAUNCHED = 24,    // waits for that player's second barrier
    SINGLE_PLAYER_STARTED = 25,     // that player becomes the current one
    WAIT_LAUNCHED_PENDING_PLAYER = 26,     // waits for the pending player's first barrier
    COULD_NOT_LAUNCH_PENDING_PLAYER = 27,  // the pending player could not be started or exited early
    WAIT_SHUTDOWN_CURRENT_PLAYER = 28,     // waits until both players have arrived at barrier 1
    SWITCH_PLAYER = 29,             // waits for the current player's exit
    DONE_SWITCHED_PLAYER = 30,      // the pending player becomes the current one
    CURRENT_PLAYER_CRASHED_DURING_PENDING_LAUNCH = 31,      // the current player exited before the pending one was ready
    CURRENT_PLAYER_CRASHED_DURING_SWITCH = 32,              // the current player exited at barrier 1
    PENDING_PLAYER_CRASHED_STOPPING_CURRENT = 33,           // the pending player exited at barrier 1
    WAIT_FOR_CURRENT_PLAYER_STOP_DURING_PENDING_CRASH = 34, // waits for the current player's exit
    BOTH_PLAYERS_DOWN_AFTER_PENDING_CRASH = 35,             // no player is left

    AUTO_START_TIMER = 36,          // arms the display time of the source shown
    AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT = 37,        // automatic mode's main waiting state
    AUTO_DIRECT_SOURCE_SELECT = 38, // a source was selected
    AUTO_GOTO_NEXT_SOURCE = 39,     // picks the next source of the sequence
    AUTO_SLEEP_AFTER_ENCODER_REQUEST_FAILED = 40,  // waits after a failed detection
    AUTO_WAIT_ERROR_SLEEP_EVENT = 41,              // waits for the error sleep's end
    AUTO_CHECK_FOR_TIME_LEFT_RECONNECT = 42,       // the same source again, or the next?
    AUTO_PAUSE = 43,                // the sequence is paused
    CURRENT_PLAYER_CRASHED_DURING_PAUSE = 44,      // the current player exited during the pause
    SLEEP_AFTER_CRASH_DURING_PAUSE = 45,           // waits after that exit
    REQUEST_ENCODER_AFTER_CRASH_DURING_PAUSE = 46, // detects the paused source again

    MANUAL_WAIT_FOR_NEW_SELECTION = 47, // manual mode's main waiting state
    MANUAL_ALARM = 48,              // shows an alarm; its source comes next
    MANUAL_DIRECT_SOURCE_SELECT = 49,   // a source was selected
    MANUAL_GOTO_NEXT_SOURCE = 50,   // picks the next source
    MANUAL_WAIT_ERROR_SLEEP_EVENT = 51, // waits for the error sleep's end
};
// clang-format on

inline constexpr int stateCount = 52;

// The handlers: one for each state, named after it, in the order of the table.
//
// The loop runs the handler of the current state once per turn, on the main thread. A handler either calls setState or
// leaves the state as it is; then it runs again.
#pragma once

namespace states {

// states_connect.cpp: from the start or a selection to a detected source
void startUl();
void connect();
void requestEncoderType();
void sendOnlyPtz();
void selectSourceId();
void flushCacheConnected();

// states_disconnected.cpp: stopping, disconnected, locked
void disconnected();
void flushCache();
void locked();
void stopPlaying();
void shutdownCurrentPlayer();
void waitDisconnectShutdown();
void playingStopped();

// states_request_failed.cpp: a failed detection; error sleeps
void requestEncoderFailed();
void setSleep10Timer();
void setSleep1Timer();
void shutdownCurrentPlayerAfterRequestFailed();
void waitShutdownCurrentPlayerAfterRequestFailed();
void currentPlayerStoppedAfterRequestFailed();

// states_launch.cpp: starting a player, with or without a current player
void launchPendingPlayer();
void launchCurrentPlayerPosWithNonExisting();
void waitLaunchedCurrentPlayerPosWithNonExisting();
void singlePlayerLaunched();
void singlePlayerStarted();
void waitLaunchedPendingPlayer();
void waitShutdownCurrentPlayer();
void switchPlayer();
void doneSwitchedPlayer();

// states_crash.cpp: players that exit unexpectedly
void currentPlayerCrashedDuringPlaying();
void couldNotLaunchPendingPlayer();
void currentPlayerCrashedDuringPendingLaunch();
void currentPlayerCrashedDuringSwitch();
void pendingPlayerCrashedStoppingCurrent();
void waitForCurrentPlayerStopDuringPendingCrash();
void bothPlayersDownAfterPendingCrash();

// states_auto.cpp: the automatic sequence
void autoStartTimer();
void autoWaitForNextSourceTimeout();
void autoDirectSourceSelect();
void autoGotoNextSource();
void autoSleepAfterEncoderRequestFailed();
void autoWaitErrorSleepEvent();
void autoCheckForTimeLeftReconnect();

// states_pause.cpp: the automatic sequence, paused
void autoPause();
void currentPlayerCrashedDuringPause();
void sleepAfterCrashDuringPause();
void requestEncoderAfterCrashDuringPause();

// states_manual.cpp: one source until the user or an alarm selects another
void manualWaitForNewSelection();
void manualAlarm();
void manualDirectSourceSelect();
void manualGotoNextSource();
void manualWaitErrorSleepEvent();

} // namespace states

// The handlers: one a state, named after it, in the order of the table.
//
// Each runs once per turn of the loop, on the main thread, and either calls setState or leaves the state as
// it is, which means: again.
#pragma once

namespace states {

// states_connect.cpp: from the start, or a selection, to a source that is known
void startUl();
void connect();
void requestEncoderType();
void sendOnlyPtz();
void selectSourceId();
void flushCacheConnected();

// states_disconnected.cpp: stopping, and what there is without playback
void disconnected();
void flushCache();
void locked();
void stopPlaying();
void shutdownCurrentPlayer();
void waitDisconnectShutdown();
void playingStopped();

// states_request_failed.cpp: a source that could not be detected; error sleeps
void requestEncoderFailed();
void setSleep10Timer();
void setSleep1Timer();
void shutdownCurrentPlayerAfterRequestFailed();
void waitShutdownCurrentPlayerAfterRequestFailed();
void currentPlayerStoppedAfterRequestFailed();

// states_launch.cpp: starting a player, alone or behind the one that shows
void launchPendingPlayer();
void launchCurrentPlayerPosWithNonExisting();
void waitLaunchedCurrentPlayerPosWithNonExisting();
void singlePlayerLaunched();
void singlePlayerStarted();
void waitLaunchedPendingPlayer();
void waitShutdownCurrentPlayer();
void switchPlayer();
void doneSwitchedPlayer();

// states_crash.cpp: players that exit when they should not
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

// states_manual.cpp: one source until the user wants another
void manualWaitForNewSelection();
void manualAlarm();
void manualDirectSourceSelect();
void manualGotoNextSource();
void manualWaitErrorSleepEvent();

} // namespace states

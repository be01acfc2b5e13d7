// Players that exit unexpectedly: CURRENT_PLAYER_CRASHED_DURING_PLAYING, COULD_NOT_LAUNCH_PENDING_PLAYER,
// CURRENT_PLAYER_CRASHED_DURING_PENDING_LAUNCH to BOTH_PLAYERS_DOWN_AFTER_PENDING_CRASH.
//
// The screen is blanked when no player is left.

#include "launcher/handlers.h"
#include "launcher/shown.h"
#include "launcher/waiting.h"
#include "player/player_exit.h"
#include "process/process_state.h"
#include "recorder/recorded.h"
#include "sources/source_cache.h"

#include <libcommon/log.h>

void states::currentPlayerCrashedDuringPlaying() {
    blankscreen();
    invalidateSource(machine.currentSource);
    forgetCurrentPlayer();
    logNothingShown("the player exited while it was playing");
    setState(SET_SLEEP_1_TIMER);
}

void states::couldNotLaunchPendingPlayer() {
    if (process.currentPID == -1)
        blankscreen();
    logmsg(6, "Failed to launch pending player");
    process.pendingPID = -1;
    invalidateSource(machine.pendingSource); // the encoder may have changed
    setState(machine.sequencePaused && inAutoMode() ? CURRENT_PLAYER_CRASHED_DURING_PAUSE
                                                    : SET_SLEEP_10_TIMER);
}

void states::currentPlayerCrashedDuringPendingLaunch() {
    forgetCurrentPlayer();
    logmsg(6, "Current player exited during pending launch");
    logNothingShown("the player exited before the next one was ready");
    setState(WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING);
}

void states::currentPlayerCrashedDuringSwitch() {
    blankscreen();
    logNothingShown("the player exited during a switch");
    recorded::sleepSeconds(2);
    if (meetAtBarrier(1, process.pendingPID))
        return setState(DONE_SWITCHED_PLAYER);
    if (pendingPlayerEnded(waitForEvent(EID_CHILD)))
        setState(BOTH_PLAYERS_DOWN_AFTER_PENDING_CRASH);
}

void states::pendingPlayerCrashedStoppingCurrent() {
    if (meetAtBarrier(1, process.currentPID))
        return setState(WAIT_FOR_CURRENT_PLAYER_STOP_DURING_PENDING_CRASH);
    if (currentPlayerEnded(waitForEvent(EID_CHILD)))
        setState(BOTH_PLAYERS_DOWN_AFTER_PENDING_CRASH);
}

void states::waitForCurrentPlayerStopDuringPendingCrash() {
    if (currentPlayerEnded(waitForEvent(EID_CHILD)))
        setState(BOTH_PLAYERS_DOWN_AFTER_PENDING_CRASH);
}

void states::bothPlayersDownAfterPendingCrash() {
    forgetCurrentPlayer();
    logNothingShown("both players exited during a switch");
    process.pendingPID = -1;
    setState(COULD_NOT_LAUNCH_PENDING_PLAYER);
}

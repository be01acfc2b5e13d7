// Starting a player, with or without a current player: LAUNCH_PENDING_PLAYER to SINGLE_PLAYER_STARTED,
// WAIT_LAUNCHED_PENDING_PLAYER, WAIT_SHUTDOWN_CURRENT_PLAYER, SWITCH_PLAYER, DONE_SWITCHED_PLAYER.
//
// A player arrives at barrier 0 when it has decoded its first frame, and at barrier 1 when it is ready to show it. In a
// switch the current player arrives at barrier 1, too, while it still shows. Both are released together, so the screen
// never goes dark. There is no time limit for a player that does not arrive: its exit ends the wait.

#include "launcher/handlers.h"
#include "launcher/shown.h"
#include "launcher/waiting.h"
#include "player/launch.h"
#include "player/player_exit.h"
#include "player/ptz.h"
#include "process/process_state.h"
#include "sources/source_cache.h"

namespace {

void launchPendingSource(State launched) {
    process.pendingPID = launchPlayer(getSourceEntry(machine.pendingSource));
    if (process.pendingPID == -1)
        return setState(COULD_NOT_LAUNCH_PENDING_PLAYER);
    gotoPtzPreset(machine.pendingSource);
    setState(launched);
}

// Meets the only player at a barrier. The exit of any other child is dropped.
void meetSinglePlayer(int barrierId, State next) {
    if (meetAtBarrier(barrierId, process.pendingPID))
        return setState(next);
    if (pendingPlayerEnded(waitForEvent(EID_CHILD)))
        setState(COULD_NOT_LAUNCH_PENDING_PLAYER);
}

} // namespace

void states::launchPendingPlayer() {
    launchPendingSource(WAIT_LAUNCHED_PENDING_PLAYER);
}

void states::launchCurrentPlayerPosWithNonExisting() {
    // kept: the status names the source before its player is up
    information("Decoder.Info.CurrentSource") = machine.pendingSource;
    launchPendingSource(WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING);
}

void states::waitLaunchedCurrentPlayerPosWithNonExisting() {
    meetSinglePlayer(0, SINGLE_PLAYER_LAUNCHED);
}

void states::singlePlayerLaunched() {
    meetSinglePlayer(1, SINGLE_PLAYER_STARTED);
}

void states::singlePlayerStarted() {
    process.currentPID = process.pendingPID.load();
    machine.currentSource = machine.pendingSource;
    process.pendingPID = -1;
    // The status does not name this source yet if the current player crashed during the launch.
    if (information("Decoder.Info.CurrentSource").toInt() != machine.currentSource)
        publishCurrentSource();
    logShownSource();
    setStateByMode(AUTO_START_TIMER, MANUAL_WAIT_FOR_NEW_SELECTION);
}

void states::waitLaunchedPendingPlayer() {
    if (meetAtBarrier(0, process.pendingPID)) {
        hangUpCurrentPlayer();
        return setState(WAIT_SHUTDOWN_CURRENT_PLAYER);
    }
    const Event event = waitForEvent(EID_CHILD);
    if (pendingPlayerEnded(event))
        setState(COULD_NOT_LAUNCH_PENDING_PLAYER);
    else if (currentPlayerEnded(event))
        setState(CURRENT_PLAYER_CRASHED_DURING_PENDING_LAUNCH);
}

void states::waitShutdownCurrentPlayer() {
    if (meetAtBarrier(1, process.currentPID, process.pendingPID))
        return setState(SWITCH_PLAYER);
    const Event event = waitForEvent(EID_CHILD);
    if (pendingPlayerEnded(event))
        setState(PENDING_PLAYER_CRASHED_STOPPING_CURRENT);
    else if (currentPlayerEnded(event))
        setState(CURRENT_PLAYER_CRASHED_DURING_SWITCH);
}

void states::switchPlayer() {
    const Event event = waitForEvent(EID_CHILD);
    if (event.id != EID_CHILD)
        return;
    if (pendingPlayerEnded(event))
        return setState(WAIT_FOR_CURRENT_PLAYER_STOP_DURING_PENDING_CRASH);
    // kept: any other child's exit is taken as the current player's
    handleError(machine.currentSource, &event);
    setState(DONE_SWITCHED_PLAYER);
}

void states::doneSwitchedPlayer() {
    process.currentPID = process.pendingPID.load();
    machine.currentSource = machine.pendingSource;
    publishCurrentSource();
    process.pendingPID = -1;
    logShownSource();
    setStateByMode(AUTO_START_TIMER, MANUAL_WAIT_FOR_NEW_SELECTION);
}

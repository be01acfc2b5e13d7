// Stopping, disconnected, locked: DISCONNECTED, FLUSH_CACHE, LOCKED, STOP_PLAYING, SHUTDOWN_CURRENT_PLAYER,
// WAIT_DISCONNECT_SHUTDOWN, PLAYING_STOPPED.

#include "events/timers.h"
#include "launcher/display.h"
#include "launcher/handlers.h"
#include "launcher/shown.h"
#include "launcher/waiting.h"
#include "player/player_exit.h"
#include "process/agreed_numbers.h"
#include "process/process_state.h"
#include "sources/source_cache.h"

#include <libcommon/display.h>
#include <libcommon/semaphores.h>

namespace {

constexpr long lockMilliseconds = 10000;

void showDisconnected() {
    if (configuration("Decoder.ShowDisconnectedMessage") == "yes")
        osdPrintf(0, 0, "Disconnected. My IP address: %s",
                  configuration("Network.eth0.IPAddress").toString().c_str());
    else
        osdClear(0);
    osdBlank();
    machine.sequencePaused = false;
    information("Decoder.Info.Connected") = "no";
    showFailureLed();
    osdClear(1);
    osdClear(2);
    blankscreen();
}

// A queued lock comes before all other events.
Event waitDisconnected() {
    if (const auto lock = takeIfQueued(EID_LOCK))
        return *lock;
    return waitForEvent(EID_SELECT, EID_BUTTON, EID_CONNECTPROPERTYCHANGED, EID_ALARM, EID_FLUSHCACHE,
                        EID_LOCK);
}

void connectAgain() {
    configuration("Decoder.Connected") = "yes";
    flushEventQueue();
    setState(CONNECT);
}

// CONNECT takes the event from the queue and shows its source first.
void connectFor(const Event& event) {
    configuration("Decoder.Connected") = "yes";
    flushEventQueue();
    pushEvent(event);
    setState(CONNECT);
}

void startLock() {
    machine.lockTimerId = setTimeout(lockMilliseconds);
    semaphoreIncrease(lockSemaphore);
}

} // namespace

void states::disconnected() {
    showDisconnected();
    const Event event = waitDisconnected();
    const bool manual = configuration("Decoder.SequenceMode") == "manual";
    if (isShortPress(event)) {
        connectAgain();
    } else if (event.id == EID_SELECT || (event.id == EID_ALARM && manual)) {
        connectFor(event);
    } else if (event.id == EID_CONNECTPROPERTYCHANGED) {
        if (configuration("Decoder.Connected") == "yes") {
            flushEventQueue();
            setState(CONNECT);
        }
    } else if (event.id == EID_FLUSHCACHE) {
        setState(FLUSH_CACHE);
    } else if (event.id == EID_LOCK) {
        startLock();
        setState(LOCKED);
    }
}

void states::flushCache() {
    flushSourceCache();
    setState(DISCONNECTED);
}

void states::locked() {
    const Event event = waitForEvent(EID_TIMEOUT, EID_RECONNECT, EID_LOCK);
    if (event.id == EID_RECONNECT || isTimeout(event, machine.lockTimerId)) {
        // In DISCONNECTED this event connects again if "Decoder.Connected" is still yes.
        pushEvent(Event{.id = EID_CONNECTPROPERTYCHANGED, .value1 = 0, .value2 = 0, .payload = {}});
        setState(FLUSH_CACHE);
    } else if (event.id == EID_LOCK) {
        startLock(); // renewed: the event of the earlier timer no longer matches
    }
}

void states::stopPlaying() {
    endPause();
    setState(process.currentPID != -1 ? SHUTDOWN_CURRENT_PLAYER : PLAYING_STOPPED);
}

void states::shutdownCurrentPlayer() {
    stopCurrentPlayer(WAIT_DISCONNECT_SHUTDOWN, PLAYING_STOPPED);
}

void states::waitDisconnectShutdown() {
    waitForCurrentPlayersExit(PLAYING_STOPPED);
}

void states::playingStopped() {
    forgetCurrentPlayer();
    logNothingShown("playback was stopped");
    process.pendingPID = -1;
    machine.pendingSource = -1;
    machine.sequencePos = -1;
    setState(DISCONNECTED);
}

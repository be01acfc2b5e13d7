// The automatic sequence, paused: AUTO_PAUSE to REQUEST_ENCODER_AFTER_CRASH_DURING_PAUSE.
//
// No timer is armed during a pause. The display timer from before the pause is not cancelled: its event stays queued,
// and the next state that waits for timers drops it.

#include "events/timers.h"
#include "launcher/display.h"
#include "launcher/handlers.h"
#include "launcher/pending_source.h"
#include "launcher/shown.h"
#include "launcher/waiting.h"
#include "player/player_exit.h"
#include "process/process_state.h"
#include "sources/source_cache.h"

#include <libcommon/display.h>
#include <libcommon/log.h>

namespace {

constexpr long retryMilliseconds = 4000;

} // namespace

void states::autoPause() {
    osdPrintf(1, 0, "Sequence paused");
    machine.sequencePaused = true;
    const Event event = waitForEvent(EID_BUTTON, EID_SELECT, EID_CHILD, EID_CONNECTPROPERTYCHANGED, EID_LOCK);
    if (isShortPress(event)) {
        endPause();
        setState(AUTO_GOTO_NEXT_SOURCE);
    } else if (event.id == EID_SELECT) {
        endPause();
        choose(event.value1, AUTO_DIRECT_SOURCE_SELECT);
    } else if (currentPlayerEnded(event)) {
        setState(CURRENT_PLAYER_CRASHED_DURING_PAUSE);
    } else {
        if (isLongPress(event))
            endPause();
        reactAsEveryWaitingState(event);
        machine.sequencePaused = machine.currentState == AUTO_PAUSE; // stopping ends the pause
    }
}

void states::currentPlayerCrashedDuringPause() {
    blankscreen();
    machine.sleepTimerId = setTimeout(retryMilliseconds);
    invalidateSource(machine.currentSource);
    forgetCurrentPlayer();
    logNothingShown("the player exited while the sequence was paused");
    setState(SLEEP_AFTER_CRASH_DURING_PAUSE);
}

void states::sleepAfterCrashDuringPause() {
    showNoConnectionUnlessPlaying();
    const Event event =
        waitForEvent(EID_BUTTON, EID_SELECT, EID_TIMEOUT, EID_CONNECTPROPERTYCHANGED, EID_LOCK);
    if (isShortPress(event))
        setState(AUTO_GOTO_NEXT_SOURCE);
    else if (event.id == EID_SELECT)
        choose(event.value1, AUTO_DIRECT_SOURCE_SELECT);
    else if (isTimeout(event, machine.sleepTimerId))
        setState(REQUEST_ENCODER_AFTER_CRASH_DURING_PAUSE);
    else
        reactAsEveryWaitingState(event);
}

void states::requestEncoderAfterCrashDuringPause() {
    const SourceEntry* entry = detectPendingSource();
    if (!isUsable(entry)) {
        flushResolver();
        machine.sleepTimerId = setTimeout(retryMilliseconds);
        return setState(SLEEP_AFTER_CRASH_DURING_PAUSE);
    }
    if (process.currentPID != -1)
        // kept: the message has a short form of the state's name
        logmsg(2, "currentPID is set but should not be in REQUEST_AFTER_PAUSE_CRASH.");
    setState(LAUNCH_CURRENT_PLAYER_POS_WITH_NON_EXISTING);
}

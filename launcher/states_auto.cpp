// The automatic sequence: AUTO_START_TIMER to AUTO_CHECK_FOR_TIME_LEFT_RECONNECT.

#include "events/timers.h"
#include "launcher/display.h"
#include "launcher/handlers.h"
#include "launcher/pending_source.h"
#include "launcher/waiting.h"
#include "recorder/recorded.h"

#include <libcommon/display.h>
#include <libcommon/log.h>

namespace {

constexpr std::int64_t microsecondsPerSecond = 1000000;

} // namespace

void states::autoStartTimer() {
    if (machine.sequencePaused)
        return setState(AUTO_PAUSE);
    const std::int64_t milliseconds = displaySeconds(machine.pendingSource) * 1000;
    if (machine.sequenceStart == -1)
        machine.sequenceStart = recorded::gettimeusec();
    machine.sequenceTimerId = setTimeout(milliseconds);
    setState(AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT);
}

void states::autoWaitForNextSourceTimeout() {
    const Event event =
        waitForEvent(EID_BUTTON, EID_SELECT, EID_CONNECTPROPERTYCHANGED, EID_LOCK, EID_TIMEOUT, EID_CHILD);
    if (isShortPress(event))
        setState(AUTO_PAUSE);
    else if (event.id == EID_SELECT)
        choose(event.value1, AUTO_DIRECT_SOURCE_SELECT);
    else if (isTimeout(event, machine.sequenceTimerId))
        setState(AUTO_GOTO_NEXT_SOURCE);
    else if (event.id == EID_TIMEOUT)
        logmsg(7, "Unknown timer ID, probably from previous crashed/interrupted PID. ID=%d", event.value1);
    else if (currentPlayerEnded(event))
        setState(CURRENT_PLAYER_CRASHED_DURING_PLAYING);
    else
        reactAsEveryWaitingState(event);
}

void states::autoDirectSourceSelect() {
    endPause();
    setState(SELECT_SOURCE_ID);
}

void states::autoGotoNextSource() {
    endPause();
    chooseNextSource();
}

void states::autoSleepAfterEncoderRequestFailed() {
    showNoConnectionUnlessPlaying();
    const Event event =
        waitForEvent(EID_BUTTON, EID_SELECT, EID_TIMEOUT, EID_CONNECTPROPERTYCHANGED, EID_LOCK);
    if (isShortPress(event) || isTimeout(event, machine.sleepTimerId))
        setState(AUTO_GOTO_NEXT_SOURCE);
    else if (event.id == EID_SELECT)
        choose(event.value1, AUTO_DIRECT_SOURCE_SELECT);
    else
        reactAsEveryWaitingState(event);
}

void states::autoWaitErrorSleepEvent() {
    showNoConnectionUnlessPlaying();
    const Event event =
        waitForEvent(EID_BUTTON, EID_SELECT, EID_TIMEOUT, EID_CONNECTPROPERTYCHANGED, EID_LOCK);
    // kept: a short press does nothing here, although it ends the other sleep
    if (event.id == EID_SELECT)
        choose(event.value1, AUTO_DIRECT_SOURCE_SELECT);
    else if (isTimeout(event, machine.sleepTimerId))
        setState(AUTO_CHECK_FOR_TIME_LEFT_RECONNECT);
    else
        reactAsEveryWaitingState(event);
}

void states::autoCheckForTimeLeftReconnect() {
    const std::int64_t slot = displaySeconds(machine.pendingSource) * microsecondsPerSecond;
    const std::int64_t left = slot - (recorded::gettimeusec() - machine.sequenceStart);
    setState(left >= machine.autoDetectTimeout ? REQUEST_ENCODER_TYPE : AUTO_GOTO_NEXT_SOURCE);
}

// Manual mode, one source until the user or an alarm selects another:
// MANUAL_WAIT_FOR_NEW_SELECTION to MANUAL_WAIT_ERROR_SLEEP_EVENT.

#include "launcher/display.h"
#include "launcher/handlers.h"
#include "launcher/pending_source.h"
#include "launcher/waiting.h"

void states::manualWaitForNewSelection() {
    const Event event =
        waitForEvent(EID_ALARM, EID_BUTTON, EID_SELECT, EID_CHILD, EID_CONNECTPROPERTYCHANGED, EID_LOCK);
    if (passesAlarmGate(event))
        setState(MANUAL_ALARM);
    else if (isShortPress(event))
        setState(MANUAL_GOTO_NEXT_SOURCE);
    else if (event.id == EID_SELECT)
        choose(event.value1, MANUAL_DIRECT_SOURCE_SELECT);
    else if (currentPlayerEnded(event))
        setState(CURRENT_PLAYER_CRASHED_DURING_PLAYING);
    else
        reactAsEveryWaitingState(event);
}

void states::manualAlarm() {
    showAlarm();
    setState(SELECT_SOURCE_ID);
}

void states::manualDirectSourceSelect() {
    setState(SELECT_SOURCE_ID);
}

void states::manualGotoNextSource() {
    chooseNextSource();
}

void states::manualWaitErrorSleepEvent() {
    printNoConnection();
    showFailureLed();
    const Event event =
        waitForEvent(EID_BUTTON, EID_SELECT, EID_ALARM, EID_TIMEOUT, EID_CONNECTPROPERTYCHANGED, EID_LOCK);
    if (isShortPress(event))
        setState(MANUAL_GOTO_NEXT_SOURCE);
    else if (event.id == EID_SELECT)
        choose(event.value1, MANUAL_DIRECT_SOURCE_SELECT);
    else if (passesAlarmGate(event))
        setState(MANUAL_ALARM);
    else if (isTimeout(event, machine.sleepTimerId))
        setState(REQUEST_ENCODER_TYPE);
    else
        reactAsEveryWaitingState(event);
}

#include "launcher/waiting.h"

#include "barrier/master_barrier.h"
#include "launcher/player_signal.h"
#include "player/player_exit.h"
#include "process/agreed_numbers.h"
#include "process/process_state.h"
#include "recorder/recorded.h"

#include <libcommon/log.h>

#include <csignal>
#include <cstring>

namespace {

bool isExitOf(int pid, const Event& event) {
    return event.id == EID_CHILD && event.value1 == pid;
}

// The payload is a NUL-terminated text that may fill it to the last byte.
std::string payloadText(const Event& event) {
    char bytes[sizeof event.payload];
    std::memcpy(bytes, event.payload, sizeof bytes);
    return {bytes, strnlen(bytes, sizeof bytes)};
}

} // namespace

void reportFailedWait(int result) {
    logmsg(3, "Could not wait for events. result=%d", result);
    recorded::sleepSeconds(1);
}

bool isShortPress(const Event& event) {
    return event.id == EID_BUTTON && (event.value2 & buttonHeldMask) == 0;
}

bool isLongPress(const Event& event) {
    return event.id == EID_BUTTON && (event.value2 & buttonHeldMask) != 0;
}

bool isTimeout(const Event& event, int timerId) {
    return event.id == EID_TIMEOUT && event.value1 == timerId;
}

bool currentPlayerEnded(const Event& event) {
    if (!isExitOf(process.currentPID, event))
        return false;
    handleError(machine.currentSource, &event);
    return true;
}

bool pendingPlayerEnded(const Event& event) {
    if (!isExitOf(process.pendingPID, event))
        return false;
    handleError(machine.pendingSource, &event);
    return true;
}

void logUnknownChild(const Event& event) {
    if (event.id == EID_CHILD)
        logmsg(3, "Unknown child event. pid=%d", event.value1);
}

void reactAsEveryWaitingState(const Event& event) {
    if (event.id == EID_CONNECTPROPERTYCHANGED) {
        if (configuration("Decoder.Connected") == "no")
            setState(STOP_PLAYING);
    } else if (event.id == EID_LOCK) {
        // Back into the queue: DISCONNECTED takes it first when playback has stopped.
        pushEvent(event);
        setState(STOP_PLAYING);
    } else if (isLongPress(event)) {
        configuration("Decoder.Connected") = "no";
        setState(STOP_PLAYING);
    } else {
        logUnknownChild(event);
    }
}

bool passesAlarmGate(const Event& event) {
    if (event.id != EID_ALARM)
        return false;
    const std::int64_t displayTime = configuration("Alarm.DisplayTime").toInt() * std::int64_t{1000000};
    if (recorded::gettimeusec() - machine.lastAlarmTime < displayTime)
        return false;
    takeAlarm(event);
    return true;
}

void takeAlarm(const Event& event) {
    machine.lastAlarmTime = recorded::gettimeusec();
    machine.pendingSource = event.value1;
    machine.alarmText = payloadText(event);
}

bool meetAtBarrier(int barrierId, int player) {
    return masterBarrier(barrierId, 1, player) >= 0;
}

bool meetAtBarrier(int barrierId, int firstPlayer, int secondPlayer) {
    return masterBarrier(barrierId, 2, firstPlayer, secondPlayer) >= 0;
}

void hangUpCurrentPlayer() {
    signalPlayer(process.currentPID, SIGHUP);
    logmsg(7, "Sending HUP to current player\n");
}

void stopCurrentPlayer(State released, State gone) {
    hangUpCurrentPlayer();
    if (meetAtBarrier(1, process.currentPID))
        return setState(released);
    const Event event = waitForEvent(EID_CHILD);
    if (currentPlayerEnded(event))
        setState(gone);
    else if (event.id == EID_CHILD)
        logmsg(7, "SIG_CHILD from PID %d\n", event.value1);
}

void waitForCurrentPlayersExit(State gone) {
    const Event event = waitForEvent(EID_CHILD);
    if (currentPlayerEnded(event))
        setState(gone);
    else
        logUnknownChild(event);
}

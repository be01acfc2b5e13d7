// A failed detection, and the error sleeps: REQUEST_ENCODER_FAILED, SET_SLEEP_10_TIMER,
// SET_SLEEP_1_TIMER, SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED,
// WAIT_SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED, CURRENT_PLAYER_STOPPED_AFTER_REQUEST_FAILED.

#include "events/timers.h"
#include "launcher/display.h"
#include "launcher/handlers.h"
#include "launcher/shown.h"
#include "launcher/waiting.h"
#include "player/player_exit.h"
#include "process/process_state.h"

namespace {

constexpr long failedRequestMilliseconds = 4000;
constexpr long longSleepMilliseconds = 10000;
constexpr long shortSleepMilliseconds = 4000; // kept: four seconds, although the state's name says 1

void startErrorSleep(long milliseconds) {
    machine.sleepTimerId = setTimeout(milliseconds);
    setStateByMode(AUTO_WAIT_ERROR_SLEEP_EVENT, MANUAL_WAIT_ERROR_SLEEP_EVENT);
}

} // namespace

void states::requestEncoderFailed() {
    if (process.currentPID != -1)
        return setState(SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED);
    if (!inAutoMode())
        return setState(SET_SLEEP_10_TIMER);
    machine.sleepTimerId = setTimeout(failedRequestMilliseconds);
    setState(AUTO_SLEEP_AFTER_ENCODER_REQUEST_FAILED);
}

void states::setSleep10Timer() {
    startErrorSleep(longSleepMilliseconds);
}

void states::setSleep1Timer() {
    startErrorSleep(shortSleepMilliseconds);
}

void states::shutdownCurrentPlayerAfterRequestFailed() {
    stopCurrentPlayer(WAIT_SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED,
                      CURRENT_PLAYER_STOPPED_AFTER_REQUEST_FAILED);
}

void states::waitShutdownCurrentPlayerAfterRequestFailed() {
    waitForCurrentPlayersExit(CURRENT_PLAYER_STOPPED_AFTER_REQUEST_FAILED);
}

void states::currentPlayerStoppedAfterRequestFailed() {
    blankscreen();
    showFailureLed();
    printNoConnection();
    forgetCurrentPlayer();
    logNothingShown("the encoder of source " + std::to_string(machine.pendingSource) + ", " +
                    sourceValue(machine.pendingSource, "Name") + ", could not be detected");
    setState(REQUEST_ENCODER_FAILED);
}

#include "launcher/display.h"

#include "launcher/machine.h"
#include "process/process_state.h"

#include <libcommon/display.h>

namespace {

constexpr int statusLed = 2;
constexpr int red = 2;
constexpr int amber = 3;
constexpr int steady = 2;
constexpr int blinking = 3;

} // namespace

void showDetectingLed() {
    set_led(statusLed, amber, blinking);
}

void showFailureLed() {
    set_led(statusLed, red, steady);
}

void printNoConnection() {
    osdPrintf(0, 0, "No connection to encoder %s(%s)", sourceValue(machine.pendingSource, "Name").c_str(),
              sourceValue(machine.pendingSource, "Address").c_str());
}

void showNoConnectionUnlessPlaying() {
    if (process.currentPID != -1)
        return;
    showFailureLed();
    printNoConnection();
}

void printDetecting() {
    osdPrintf(0, 0, "Automatically detecting encoder and connection type for %s",
              sourceValue(machine.pendingSource, "Name").c_str());
}

void showAlarm() {
    const int seconds = configuration("Alarm.DisplayTime").toInt();
    osdClear(1);
    osdClear(2);
    osdPrintf(1, seconds, "ALARM: %s(%s)", sourceValue(machine.pendingSource, "Name").c_str(),
              sourceValue(machine.pendingSource, "Address").c_str());
    if (!machine.alarmText.empty())
        osdPrintf(2, seconds, "Message: %s", machine.alarmText.c_str());
}

#include "appliance/commands/alarm_or_select.h"

#include "appliance/commands/actions.h"
#include "appliance/operating/decoder_events.h"
#include "appliance/operating/refused.h"
#include "appliance/operating/running_decoder.h"
#include "appliance/reporting/in_force.h"

#include <libcommon/display.h>
#include <libcommon/params.h>

#include <algorithm>

namespace {

// The supervisor writes this line only for alarms in manual mode. Line 1 would be cleared by the selection, if it ends a
// pause.
constexpr int textLine = 2;

// Whether the decoder would take an alarm event now. A connected decoder keeps the mode that it connected with.
bool takesAlarms() {
    if (isConnected()) {
        const InForce inForce = readInForce();
        if (inForce.known)
            return inForce.sequenceMode == "manual";
    }
    return ParamWrapper(0, false)["Decoder.SequenceMode"] == "manual";
}

void requireAlarms() {
    if (ParamWrapper(0, false)["Alarm.Enabled"] != "yes")
        throw Refused("alarms are off: Alarm.Enabled is not \"yes\"");
    requireRunningAppliance();
}

AlarmAnswer showInAutomaticMode(int index, const std::string& name, const std::string& text) {
    if (!isConnected())
        throw Refused(isHeldBack() ? "the decoder is locked and in automatic mode: it shows no alarm"
                                   : "the decoder is disconnected and in automatic mode: it shows no alarm");
    const std::string sentence = selectSource(index, name);
    const int seconds = std::max(ParamWrapper(0, false)["Alarm.DisplayTime"].toInt(), 0);
    // 0 seconds would show the text until it is cleared, and nothing clears it.
    if (seconds > 0)
        osdPrintf(textLine, seconds, "ALARM: %s%s%s", name.c_str(), text.empty() ? "" : ": ", text.c_str());
    return {.selected = true, .sentence = sentence + " because of an alarm: alarms show in manual mode only"};
}

} // namespace

AlarmAnswer alarmOrSelect(int index, const std::string& name, const std::string& text) {
    requireAlarms();
    if (takesAlarms())
        return {.selected = false, .sentence = raiseAlarm(index, name, text)};
    return showInAutomaticMode(index, name, text);
}

#include "appliance/commands/actions.h"

#include "appliance/operating/decoder_events.h"
#include "appliance/operating/quoted_text.h"
#include "appliance/operating/refused.h"
#include "appliance/operating/running_decoder.h"
#include "appliance/reporting/in_force.h"
#include "appliance/sound/sound_control.h"

#include <libcommon/display.h>
#include <libcommon/params.h>

namespace {

constexpr int alarmLine = 1; // of the on-screen texts

// Why the decoder will not show an alarm now, and what it does with the alarm instead; "" when it shows the alarm.
std::string alarmObstacle() {
    const ParamWrapper configuration(0, false);
    const bool manual = configuration["Decoder.SequenceMode"] == "manual";
    if (configuration["Alarm.Enabled"] != "yes") {
        return "the decoder drops it: Alarm.Enabled is not \"yes\"";
    }
    if (isHeldBack()) {
        return manual ? "the decoder is locked and shows it afterwards"
                      : "the decoder is locked and drops it afterwards";
    }
    if (!isConnected()) {
        return manual ? "" : "the decoder drops it: it is disconnected and in automatic mode";
    }
    const InForce inForce = readInForce();
    if (inForce.known && inForce.sequenceMode == "auto") {
        return manual
                   ? "it waits: the decoder is in automatic mode until the next connect, and alarms show in "
                     "manual mode only (decoderctl apply)"
                   : "it waits: alarms show in manual mode only. The next disconnect drops it, unless "
                     "Decoder.SequenceMode is \"manual\" by then";
    }
    if (libcommon::osdText(alarmLine).starts_with("ALARM: ")) {
        return "the decoder drops it if the alarm before still shows then";
    }
    return "";
}

} // namespace

std::string raiseAlarm(int index, const std::string& name, const std::string& text) {
    const std::string obstacle = alarmObstacle();
    Event event{};
    event.id = EID_ALARM;
    event.value1 = index;
    libcommon::setEventText(event, text.c_str());
    sendToDecoder(event);
    std::string answer = "alarm raised for " + numberAndName(index, name);
    const char* sent = reinterpret_cast<const char*>(event.payload);
    if (text != sent) {
        answer += "; the text was cut to " + inQuotes(sent);
    }
    return answer + (obstacle.empty() ? "" : "; " + obstacle);
}

std::string lockDecoder() {
    sendPlainEvent(EID_LOCK);
    return "locked: the decoder stops playing for ten seconds";
}

std::string endLock() {
    const bool playing = isConnected();
    const bool heldBack = isHeldBack();
    sendPlainEvent(EID_RECONNECT);
    if (playing) {
        return "the decoder is not locked: the request waits and ends the next lock as soon as it begins; a "
               "connect "
               "drops it";
    }
    return heldBack ? "the lock ends and the decoder connects"
                    : "the decoder is disconnected and stays so; a lock ends, and without one the request "
                      "waits for "
                      "the next lock";
}

std::string flushDetections() {
    const bool playing = isConnected();
    const bool heldBack = isHeldBack();
    sendPlainEvent(EID_FLUSHCACHE);
    if (playing) {
        return "the picture stays: the decoder forgets what was detected when it next changes the source "
               "(decoderctl apply: now, after a change of the configuration)";
    }
    return heldBack ? "what was detected is forgotten when the lock ends" : "what was detected is forgotten";
}

std::string setSoundVolume(int percent) {
    if (!sound::setVolume(percent)) {
        throw Refused("Sound.Volume can't be written " + applianceText());
    }
    return "the volume is " + std::to_string(percent) + '%' +
           (sound::settings().muted ? "; the sound is muted" : "");
}

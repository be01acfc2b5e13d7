#include "appliance/ctl/actions.h"

#include "appliance/ctl/connection.h"
#include "appliance/ctl/in_force.h"
#include "appliance/ctl/quoted_text.h"
#include "appliance/ctl/refused.h"
#include "appliance/sound/sound_control.h"

#include <libcommon/display.h>
#include <libcommon/params.h>
#include <libcommon/paths.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int alarmLine = 1; // of the on-screen texts

void send(const Event& event) {
    if (sendEvent(&event) == 0) {
        return;
    }
    switch (errno) {
    case ENOENT:
        throw Refused("no decoder is running " + applianceText());
    case EAGAIN:
        throw Refused("the decoder's event queue is full: it does not keep up, try again");
    case EACCES:
        throw Refused("not allowed to talk to the decoder " + applianceText() + ": use its user or group");
    default:
        throw Refused(std::string("the event could not be sent: ") + std::strerror(errno));
    }
}

std::string sourceText(int index, const std::string& name) {
    return std::to_string(index) + ' ' + inQuotes(name);
}

// A decoder that should play but does not is locked or about to connect.
bool isHeldBack() {
    return !isConnected() && ParamWrapper(0, false)["Decoder.Connected"] == "yes";
}

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

void sendPlainEvent(EventId id) {
    Event event{};
    event.id = id;
    send(event);
}

std::string selectSource(int index, const std::string& name) {
    const bool heldBack = isHeldBack();
    Event event{};
    event.id = EID_SELECT;
    event.value1 = index;
    send(event);
    return "selected " + sourceText(index, name) + (heldBack ? "; shown when the lock ends" : "");
}

std::string raiseAlarm(int index, const std::string& name, const std::string& text) {
    const std::string obstacle = alarmObstacle();
    Event event{};
    event.id = EID_ALARM;
    event.value1 = index;
    libcommon::setEventText(event, text.c_str());
    send(event);
    std::string answer = "alarm raised for " + sourceText(index, name);
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

std::string muteSound(bool muted) {
    requireRunningAppliance();
    if (!sound::setMuted(muted)) {
        throw Refused("Sound.Info.Muted can't be written " + applianceText());
    }
    const sound::Settings now = sound::settings();
    if (muted) {
        return "the sound is muted";
    }
    return now.enabled ? "the sound plays at " + std::to_string(now.volume) + "% of its volume"
                       : "the sound is no longer muted, but Sound.Enabled is \"no\"";
}

std::string setSoundVolume(int percent) {
    if (!sound::setVolume(percent)) {
        throw Refused("Sound.Volume can't be written " + applianceText());
    }
    return "the volume is " + std::to_string(percent) + '%' +
           (sound::settings().muted ? "; the sound is muted" : "");
}

std::string pressButton(bool hold) {
    requireRunningAppliance();
    const std::string file = libcommon::appliancePath("/proc/sys/dev/button_videoselect");
    const int fd = open(file.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        throw Refused(errno == ENXIO ? "no program reads the button " + file + ": no decoder is running"
                                     : "the button " + file + " can't be pressed: " + std::strerror(errno));
    }
    struct stat info {};
    // A regular file would always read as pressed.
    const bool fifo = fstat(fd, &info) == 0 && S_ISFIFO(info.st_mode);
    const ssize_t written = fifo ? write(fd, hold ? "2" : "1", 1) : 0;
    close(fd);
    if (!fifo) {
        throw Refused("the button " + file + " is not a FIFO, so only a person can press it");
    }
    if (written != 1) {
        throw Refused("the button " + file + " could not be pressed: " + std::strerror(errno));
    }
    return hold ? "button held" : "button pressed";
}

#include "appliance/commands/connection.h"

#include "appliance/commands/parameter_commands.h"
#include "appliance/operating/decoder_events.h"
#include "appliance/operating/refused.h"
#include "appliance/operating/running_decoder.h"
#include "appliance/reporting/in_force.h"
#include "appliance/settings/parameter_check.h"

#include <libcommon/clock.h>
#include <libcommon/events.h>
#include <libcommon/params.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <sstream>
#include <unistd.h>

namespace {

constexpr const char* connectedName = "Decoder.Connected";
constexpr timespec betweenLooks{0, 20'000'000};

// "15 seconds", "0.5 seconds".
std::string secondsText(double seconds) {
    std::ostringstream text;
    text << seconds << (seconds == 1 ? " second" : " seconds");
    return text.str();
}

// Waits until isConnected() equals `connected`; false when the time is over.
bool awaitConnected(bool connected, double wait) {
    const std::int64_t start = gettimeusec();
    while (isConnected() != connected) {
        requireRunningAppliance();
        if (static_cast<double>(gettimeusec() - start) > wait * 1e6) {
            return false;
        }
        nanosleep(&betweenLooks, nullptr);
    }
    return true;
}

void announce(bool connected) {
    writeParameterChecked(connectedName, connected ? "yes" : "no");
    sendPlainEvent(EID_CONNECTPROPERTYCHANGED);
}

std::string connect(double wait) {
    if (isConnected() && isWanted()) {
        return "already connected";
    }
    announce(true);
    if (wait == 0) {
        return "the decoder has the request to connect";
    }
    if (!awaitConnected(true, wait)) {
        throw Refused(
            "the decoder has not connected within " + secondsText(wait) +
            "; it has the request and connects when it can (a lock delays it by up to ten seconds)");
    }
    if (!hasUsableSource()) {
        throw Refused("no source is enabled in the configured mode: the decoder disconnects again "
                      "(decoderctl check names the mistakes)");
    }
    return "connected";
}

std::string disconnect(double wait) {
    if (!isConnected() && !isWanted()) {
        return "already disconnected";
    }
    announce(false);
    if (wait == 0) {
        return "the decoder has the request to disconnect";
    }
    if (!awaitConnected(false, wait)) {
        throw Refused("the decoder has not disconnected within " + secondsText(wait) +
                      "; it has the request and may still do it");
    }
    return "disconnected";
}

} // namespace

bool hasUsableSource() {
    const char* key =
        ParamWrapper(0, false)["Decoder.SequenceMode"] == "manual" ? "ManualEnabled" : "AutoEnabled";
    std::vector<SourceParams> sources = getSubGroups(0, "Encoder");
    return std::ranges::any_of(
        sources, [&](SourceParams& source) { return source[key] == "yes" && !source["Address"].empty(); });
}

void requireReadableConfiguration() {
    if (access(configurationFile().c_str(), R_OK) != 0 && errno == EACCES) {
        throw Refused("not allowed to read " + configurationFile() + ": use the decoder's user or group");
    }
}

std::string setConnected(bool connected, double wait) {
    requireRunningAppliance();
    return connected ? connect(wait) : disconnect(wait);
}

void reconnect(int source) {
    requireRunningAppliance();
    if (isConnected() || isWanted()) {
        setConnected(false);
    }
    sendPlainEvent(EID_FLUSHCACHE); // taken while it is disconnected, before the next event
    if (source < 0) {
        setConnected(true);
        return;
    }
    Event select{}; // a disconnected decoder connects for it and shows that source first
    select.id = EID_SELECT;
    select.value1 = source;
    sendToDecoder(select);
    if (!awaitConnected(true, usualWait)) {
        throw Refused("the decoder has not connected within " + secondsText(usualWait) +
                      "; it has the request and connects when it can");
    }
}

std::string applyConfiguration() {
    requireRunningAppliance();
    if (!isConnected()) {
        sendPlainEvent(EID_FLUSHCACHE);
        return isWanted() ? "the decoder is locked or about to connect: it reads the configuration then"
                          : "the decoder is disconnected: it reads the configuration at the next connect";
    }
    const InForce inForce = readInForce();
    if (inForce.known && inForce.unchanged) {
        return "nothing to apply: the configuration has not changed since the decoder connected";
    }
    reconnect(-1);
    return "applied: the decoder has connected with the configuration as it is now";
}

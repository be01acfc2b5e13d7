#include "appliance/reporting/decoder_status.h"

#include "appliance/operating/quoted_text.h"
#include "appliance/reporting/error_words.h"
#include "appliance/reporting/source_report.h"

#include <libcommon/clock.h>
#include <libcommon/events.h>
#include <libcommon/params.h>
#include <libcommon/status.h>
#include <libcommon/text.h>

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>

namespace {

constexpr int statusLedNumber = 2;

// A missing value also gives -1, because 0 is the first source.
int sourceIndexOf(const std::string& text) {
    int index = -1;
    std::from_chars(text.data(), text.data() + text.size(), index);
    return index;
}

std::string colourText(int colour) {
    switch (colour) {
    case 2:
        return "red";
    case 3:
        return "amber";
    default:
        return "colour " + std::to_string(colour);
    }
}

std::string patternText(int pattern) {
    switch (pattern) {
    case 2:
        return "steady";
    case 3:
        return "blinking";
    default:
        return "pattern " + std::to_string(pattern);
    }
}

std::string sourceLine(const DecoderStatus& status) {
    if (status.currentSource < 0) {
        return "none";
    }
    const std::string error = errorText(status.errorCode);
    return std::to_string(status.currentSource) + ' ' + inQuotes(status.sourceName) + " at " +
           libcommon::printable(status.sourceAddress) + (error.empty() ? "" : ", " + error);
}

std::string connectedLine(const DecoderStatus& status) {
    if (status.connected) {
        return status.wanted ? "yes" : "yes, about to disconnect";
    }
    return status.wanted ? "no, locked or about to connect" : "no";
}

std::string pictureLine(const std::optional<Picture>& picture) {
    if (!picture) {
        return "none yet";
    }
    if (picture->blanked) {
        return "blank";
    }
    const std::int64_t age = (gettimeusec() - picture->time) / 1000;
    return "frame " + std::to_string(picture->number) + " of source " + std::to_string(picture->source) +
           ", " + std::to_string(age) + " ms ago, drawn by player " + std::to_string(picture->playerPid);
}

} // namespace

DecoderStatus readDecoderStatus() {
    DecoderStatus status;
    const ParamWrapper configuration(0, false);
    const ParamWrapper information(1, false);
    status.supervisorPid = libcommon::eventQueueOwner();
    status.connected = information["Decoder.Info.Connected"] == "yes";
    status.wanted = configuration["Decoder.Connected"] == "yes";
    status.configuredMode = configuration["Decoder.SequenceMode"].toString();
    const InForce inForce = readInForce();
    status.mode = inForce.known ? inForce.sequenceMode : status.configuredMode;
    status.unread = !inForce.unchanged;
    status.currentSource = sourceIndexOf(information["Decoder.Info.CurrentSource"].toString());
    const std::vector<SourceReport> sources = readSourceReports(inForce);
    status.sourcesNotInForce = static_cast<int>(std::ranges::count_if(
        sources, [](const SourceReport& source) { return !source.difference.inForce(); }));
    if (status.currentSource >= 0 && static_cast<std::size_t>(status.currentSource) < sources.size()) {
        status.sourceName = sources[status.currentSource].name;
        status.sourceAddress = sources[status.currentSource].address;
        status.errorCode = ::status(status.currentSource, "ErrorCode");
    }
    for (int line = 0; line < libcommon::osdLines; ++line) {
        status.osd[line] = libcommon::osdText(line);
    }
    status.statusLed = libcommon::ledState(statusLedNumber);
    status.picture = readPicture();
    return status;
}

std::string ledText(const libcommon::LedState& led) {
    if (led.colour == 0 && led.pattern == 0) {
        return "off";
    }
    return colourText(led.colour) + ", " + patternText(led.pattern);
}

nlohmann::json ledJson(const libcommon::LedState& led) {
    return {
        {"led", statusLedNumber}, {"colour", led.colour}, {"pattern", led.pattern}, {"text", ledText(led)}};
}

std::string modeText(const DecoderStatus& status) {
    const bool usable = status.configuredMode == "auto" || status.configuredMode == "manual";
    const std::string configured =
        status.configuredMode.empty() ? "nothing" : libcommon::printable(status.configuredMode);
    if (status.mode != status.configuredMode) {
        return status.mode + "; configured: " + configured +
               (usable ? ", in force at the next connect" : ", which is no mode: the mode stays");
    }
    return usable ? status.mode
                  : configured + " is configured, which is no mode: the decoder keeps the mode before";
}

std::string statusText(const DecoderStatus& status) {
    std::string text;
    text += "connected   " + connectedLine(status) + '\n';
    text += "mode        " + modeText(status) + '\n';
    text += "source      " + sourceLine(status) + '\n';
    text += "picture     " + pictureLine(status.picture) + '\n';
    for (int line = 0; line < libcommon::osdLines; ++line) {
        if (!status.osd[line].empty()) {
            text += "text " + std::to_string(line) + "      " + libcommon::printable(status.osd[line]) + '\n';
        }
    }
    text += "status LED  " + ledText(status.statusLed) + '\n';
    if (status.unread) {
        text += "configured  changed since the decoder connected";
        if (status.sourcesNotInForce > 0) {
            text += ", " + std::to_string(status.sourcesNotInForce) + " of the sources (decoderctl sources)";
        }
        text += "; decoderctl apply brings it into force\n";
    }
    return text;
}

nlohmann::json statusJson(const DecoderStatus& status) {
    nlohmann::json json{{"supervisorPid", status.supervisorPid},
                        {"connected", status.connected},
                        {"connectWanted", status.wanted},
                        {"mode", status.mode},
                        {"configuredMode", status.configuredMode},
                        {"configurationChanged", status.unread},
                        {"sourcesNotInForce", status.sourcesNotInForce},
                        {"currentSource", status.currentSource},
                        {"sourceName", status.sourceName},
                        {"sourceAddress", status.sourceAddress},
                        {"errorCode", isError(status.errorCode) ? status.errorCode : ""},
                        {"error", errorWords(status.errorCode)},
                        {"playerPid", -1},
                        {"osd", status.osd},
                        {"leds", nlohmann::json::array({ledJson(status.statusLed)})},
                        {"frame", nullptr}};
    if (status.picture) {
        json["frame"] = {{"number", status.picture->number},
                         {"time", status.picture->time},
                         {"source", status.picture->source},
                         {"blank", status.picture->blanked},
                         {"ageMs", (gettimeusec() - status.picture->time) / 1000}};
        if (status.currentSource >= 0) {
            json["playerPid"] = status.picture->playerPid;
        }
    }
    return json;
}

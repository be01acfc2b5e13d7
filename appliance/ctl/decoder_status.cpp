#include "appliance/ctl/decoder_status.h"

#include "appliance/ctl/source_report.h"

#include <libcommon/clock.h>
#include <libcommon/events.h>
#include <libcommon/params.h>
#include <libcommon/status.h>

#include <charconv>
#include <nlohmann/json.hpp>

namespace {

constexpr int statusLedNumber = 2;

// -1 for a missing value as well: 0 would name the first source.
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
    std::string text =
        std::to_string(status.currentSource) + " \"" + status.sourceName + "\" at " + status.sourceAddress;
    if (!status.errorCode.empty() && status.errorCode != "0") {
        text += ", error " + status.errorCode;
    }
    return text;
}

std::string pictureLine(const std::optional<Picture>& picture) {
    if (!picture) {
        return "none was drawn yet";
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
    status.mode = configuration["Decoder.SequenceMode"].toString();
    status.currentSource = sourceIndexOf(information["Decoder.Info.CurrentSource"].toString());
    const std::vector<SourceReport> sources = readSourceReports();
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

std::string statusText(const DecoderStatus& status) {
    std::string text;
    text += "connected   " + std::string(status.connected ? "yes" : "no") + '\n';
    text += "mode        " + (status.mode.empty() ? "not set" : status.mode) + '\n';
    text += "source      " + sourceLine(status) + '\n';
    text += "picture     " + pictureLine(status.picture) + '\n';
    for (int line = 0; line < libcommon::osdLines; ++line) {
        if (!status.osd[line].empty()) {
            text += "text " + std::to_string(line) + "      " + status.osd[line] + '\n';
        }
    }
    text += "status LED  " + ledText(status.statusLed) + '\n';
    return text;
}

nlohmann::json statusJson(const DecoderStatus& status) {
    nlohmann::json json{{"supervisorPid", status.supervisorPid},
                        {"connected", status.connected},
                        {"mode", status.mode},
                        {"currentSource", status.currentSource},
                        {"sourceName", status.sourceName},
                        {"playerPid", -1},
                        {"osd", status.osd},
                        {"leds",
                         {{{"led", statusLedNumber},
                           {"colour", status.statusLed.colour},
                           {"pattern", status.statusLed.pattern},
                           {"text", ledText(status.statusLed)}}}},
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

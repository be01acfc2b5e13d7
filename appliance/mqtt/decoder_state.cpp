#include "appliance/mqtt/decoder_state.h"

#include "appliance/reporting/decoder_status.h"
#include "appliance/reporting/error_words.h"
#include "appliance/reporting/in_force.h"
#include "appliance/reporting/source_report.h"
#include "appliance/sound/sound_control.h"

#include <libcommon/params.h>
#include <libcommon/status.h>
#include <libcommon/text.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <nlohmann/json.hpp>
#include <string_view>

namespace mqtt {
namespace {

constexpr std::string_view alarmStart = "ALARM: ";
constexpr std::string_view messageStart = "Message: ";

nlohmann::json errorJson(const std::string& code) {
    if (!isError(code)) {
        return nullptr;
    }
    return {{"code", libcommon::printable(code)}, {"text", errorWords(code)}};
}

nlohmann::json sourceJson(const DecoderStatus& status) {
    if (status.currentSource < 0) {
        return nullptr;
    }
    std::vector<std::string> names;
    for (SourceParams source : getSubGroups(0, "Encoder")) {
        names.push_back(source["Name"]);
    }
    const auto index = static_cast<std::size_t>(status.currentSource);
    return {{"index", status.currentSource},
            {"name", libcommon::printable(status.sourceName)},
            {"option", index < names.size() ? sourceOptions(names)[index] : std::to_string(index)}};
}

// In manual mode the supervisor writes both lines; in automatic mode a rule writes the second one.
nlohmann::json alarmJson(const DecoderStatus& status) {
    std::string_view text = status.osd[2];
    if (text.empty()) {
        text = status.osd[1].starts_with(alarmStart) ? std::string_view(status.osd[1]) : "";
    }
    if (text.empty()) {
        return nullptr;
    }
    text.remove_prefix(text.starts_with(messageStart) ? messageStart.size() : 0);
    text.remove_prefix(text.starts_with(alarmStart) ? alarmStart.size() : 0);
    return {{"text", libcommon::printable(text)}};
}

nlohmann::json soundJson() {
    const sound::Settings settings = sound::settings();
    return {{"enabled", settings.enabled}, {"muted", settings.muted}, {"volume", settings.volume}};
}

} // namespace

nlohmann::json readState(DecoderState& more) {
    const DecoderStatus status = readDecoderStatus();
    nlohmann::json state{{"version", HOUSE_VERSION},
                         {"running", status.supervisorPid >= 0},
                         {"connected", status.connected && status.supervisorPid >= 0},
                         {"connectWanted", status.wanted},
                         {"mode", libcommon::printable(status.mode)},
                         {"source", sourceJson(status)},
                         {"error", errorJson(status.errorCode)},
                         {"alarm", alarmJson(status)},
                         {"led", ledText(status.statusLed)},
                         {"sound", soundJson()},
                         {"configurationChanged", status.unread}};
    if (status.supervisorPid < 0) {
        state["source"] = nullptr;
        state["error"] = nullptr;
        state["alarm"] = nullptr;
    }
    more.supervisorPid = status.supervisorPid;
    more.textShows = !state["alarm"].is_null();
    return state;
}

nlohmann::json readSources() {
    const std::vector<SourceReport> reports = readSourceReports(readInForce());
    const std::vector<std::string> options = sourceOptions(sourceNames(reports));
    const bool manual = ParamWrapper(0, false)["Decoder.SequenceMode"] == "manual";
    const std::string enabledKey = manual ? "ManualEnabled" : "AutoEnabled";
    nlohmann::json list = nlohmann::json::array();
    for (std::size_t i = 0; i < reports.size(); ++i) {
        const SourceReport& report = reports[i];
        const bool enabled =
            std::ranges::any_of(report.configured, [&](const std::pair<std::string, std::string>& key) {
                return istring(key.first.c_str()) == enabledKey.c_str() && key.second == "yes";
            });
        const int index = report.index;
        list.push_back({{"index", index},
                        {"name", libcommon::printable(report.name)},
                        {"option", options[i]},
                        {"enabled", enabled},
                        {"type", libcommon::printable(status(index, "VideoSourceType"))},
                        {"model", libcommon::printable(status(index, "Model"))},
                        {"error", errorJson(status(index, "ErrorCode"))}});
    }
    return list;
}

std::vector<std::pair<std::string, nlohmann::json>> eventsBetween(const nlohmann::json& before,
                                                                  const nlohmann::json& now) {
    std::vector<std::pair<std::string, nlohmann::json>> events;
    for (const char* key : {"running", "connected", "mode", "source", "error", "alarm", "led", "sound"}) {
        if (before.is_object() && before.value(key, nlohmann::json()) != now.value(key, nlohmann::json())) {
            events.emplace_back(key, now.value(key, nlohmann::json()));
        }
    }
    return events;
}

std::vector<std::string> sourceOptions(const std::vector<std::string>& names) {
    std::vector<std::string> options;
    for (const std::string& name : names) {
        const auto same = std::ranges::count_if(
            names, [&](const std::string& other) { return istring(other.c_str()) == istring(name.c_str()); });
        options.push_back(same == 1 && !name.empty() ? libcommon::printable(name)
                                                     : std::to_string(options.size()));
    }
    return options;
}

double timeNow() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::round(std::chrono::duration<double>(now).count() * 1000) / 1000;
}

} // namespace mqtt

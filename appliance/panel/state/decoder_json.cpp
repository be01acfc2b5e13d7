#include "appliance/panel/state/decoder_json.h"

#include "appliance/reporting/error_words.h"
#include "appliance/settings/secrets.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <libcommon/params.h>
#include <nlohmann/json.hpp>
#include <strings.h>
#include <unistd.h>

namespace panel {
namespace {

using nlohmann::json;

std::string valueOf(const std::vector<std::pair<std::string, std::string>>& pairs, std::string_view key) {
    const auto found = std::ranges::find_if(pairs, [&](const auto& pair) {
        return pair.first.size() == key.size() && strncasecmp(pair.first.data(), key.data(), key.size()) == 0;
    });
    return found == pairs.end() ? "" : found->second;
}

json orNull(const std::string& text) {
    return text.empty() ? json() : json(text);
}

json numberOrNull(const std::string& text) {
    long number = 0;
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && rest == end ? json(number) : json();
}

json errorObject(const std::string& code) {
    return isError(code) ? json{{"code", code}, {"text", errorWords(code)}} : json();
}

} // namespace

std::string decoderName() {
    std::string name = ParamWrapper(0, false)["Panel.Name"].toString();
    if (!name.empty())
        return name;
    std::array<char, 256> machine{};
    gethostname(machine.data(), machine.size() - 1);
    return machine.data();
}

std::string statusValue(const SourceReport& source, std::string_view key) {
    return valueOf(source.status, key);
}

std::string configuredValue(const SourceReport& source, std::string_view key) {
    return valueOf(source.configured, key);
}

bool isPaused(const DecoderStatus& status) {
    return status.connected && status.osd[1] == "Sequence paused";
}

std::string activityOf(const DecoderStatus& status) {
    if (status.supervisorPid < 0)
        return "stopped";
    if (!status.connected)
        return status.wanted ? "locked" : "disconnected";
    if (status.osd[0].starts_with("Automatically detecting encoder"))
        return "detecting";
    if (status.osd[0].starts_with("No connection to encoder"))
        return "noConnection";
    if (isPaused(status))
        return "paused";
    return status.picture && !status.picture->blanked ? "playing" : "waiting";
}

std::optional<double> secondsLeft(const DecoderStatus& status, const StatusContext& context) {
    const bool counts = status.connected && status.mode == "auto" && !isPaused(status) &&
                        status.currentSource >= 0 && status.currentSource == context.shownSource;
    if (!counts || !context.displayTime || *context.displayTime <= 0 || context.shownSince == 0)
        return std::nullopt;
    const double shown = static_cast<double>(context.now - context.shownSince) / 1e6;
    return std::round(std::max(*context.displayTime - shown, 0.0) * 10) / 10;
}

json statusObject(const DecoderStatus& status, const StatusContext& context) {
    json object = statusJson(status);
    const std::optional<double> left = secondsLeft(status, context);
    const bool shows = status.connected && context.shownSince != 0 && status.currentSource >= 0;
    object["activity"] = activityOf(status);
    object["machineState"] = orNull(context.machineState);
    object["paused"] = isPaused(status);
    object["sound"] = {
        {"enabled", context.sound.enabled}, {"volume", context.sound.volume}, {"muted", context.sound.muted}};
    object["displayTime"] = context.displayTime ? json(*context.displayTime) : json();
    object["shownSince"] = shows ? orNull(context.shownSinceText) : json();
    object["secondsLeft"] = left ? json(*left) : json();
    object["decoder"] = context.decoder;
    object["version"] = HOUSE_VERSION;
    hideSecrets(object);
    return object;
}

json comparableStatus(json status) {
    status.erase("secondsLeft");
    if (status["frame"].is_object()) {
        for (const char* passing : {"number", "time", "ageMs"})
            status["frame"].erase(passing);
    }
    return status;
}

json sourceObject(const SourceReport& source, bool current, const FindStill& still) {
    json object = sourceJson(source);
    object["current"] = current;
    object["error"] = errorObject(statusValue(source, "ErrorCode"));
    object["model"] = orNull(statusValue(source, "Model"));
    object["kind"] = orNull(statusValue(source, "VideoSourceType"));
    object["displayTime"] = numberOrNull(configuredValue(source, "DisplayTime"));
    object["autoEnabled"] = configuredValue(source, "AutoEnabled") == "yes";
    object["manualEnabled"] = configuredValue(source, "ManualEnabled") == "yes";
    const std::optional<StillInfo> picture = still(source.name);
    const std::string address = "/api/v1/sources/" + std::to_string(source.index) + "/still.jpg?";
    object["still"] = picture ? json(address + picture->key) : json();
    object["stillTime"] = picture ? json(picture->time) : json();
    hideSecrets(object);
    return object;
}

json sourceObjects(const std::vector<SourceReport>& sources, int current, const FindStill& still) {
    json list = json::array();
    for (const SourceReport& source : sources)
        list.push_back(sourceObject(source, source.index == current, still));
    return list;
}

json comparableSources(json sources) {
    for (json& source : sources) {
        if (source["warm"].is_object()) {
            for (const char* passing : {"keyAgeMs", "bitRate", "bytes"})
                source["warm"].erase(passing);
        }
        for (const char* passing : {"BitRate", "FrameRate", "Still"})
            source["status"].erase(passing);
    }
    return sources;
}

} // namespace panel

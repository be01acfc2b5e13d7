#include "appliance/panel/fleet/fleet_json.h"

#include <nlohmann/json.hpp>

namespace panel {
namespace {

using nlohmann::json;

json textOrNull(const std::string& text) {
    return text.empty() ? json() : json(text);
}

json decoderJson(const mqtt::FleetDecoder& decoder) {
    const bool lost = !decoder.online && !decoder.stopped;
    const double since = lost ? decoder.seen : decoder.since;
    json error;
    if (!decoder.errorCode.empty())
        error = {{"code", decoder.errorCode}, {"text", decoder.error}};
    return {{"name", decoder.name},
            {"online", decoder.online},
            {"lost", lost},
            {"since", since > 0 ? json(since) : json()},
            {"running", decoder.running},
            {"connected", decoder.connected},
            {"mode", decoder.mode},
            {"source", textOrNull(decoder.sourceName)},
            {"error", error},
            {"alarm", textOrNull(decoder.alarm)},
            {"groups", decoder.groups},
            {"sources", decoder.sources},
            {"panel", textOrNull(decoder.panel)}};
}

} // namespace

json fleetDecodersJson(const std::vector<mqtt::FleetDecoder>& decoders) {
    json list = json::array();
    for (const mqtt::FleetDecoder& decoder : decoders)
        list.push_back(decoderJson(decoder));
    return list;
}

json fleetTargetsJson(const std::vector<mqtt::FleetDecoder>& decoders, const std::string& site) {
    json list = json::array();
    for (const mqtt::FleetDecoder& decoder : decoders) {
        const std::size_t scheme = decoder.panel.find("://");
        if (scheme == std::string::npos)
            continue;
        list.push_back({{"targets", {decoder.panel.substr(scheme + 3)}},
                        {"labels",
                         {{"__scheme__", decoder.panel.substr(0, scheme)},
                          {"decoder_name", decoder.name},
                          {"site", site}}}});
    }
    return list;
}

} // namespace panel

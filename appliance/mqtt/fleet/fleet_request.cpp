#include "appliance/mqtt/fleet/fleet_request.h"

#include "appliance/operating/refused.h"

#include <nlohmann/json.hpp>

namespace mqtt {

std::string fleetRequestText(const FleetRequest& request) {
    return nlohmann::json{{"broker", request.broker},     {"caFile", request.caFile},
                          {"word", request.word},         {"source", request.source},
                          {"text", request.text},         {"group", request.group},
                          {"decoders", request.decoders}, {"json", request.json}}
        .dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

FleetRequest readFleetRequest(std::string_view text) {
    const nlohmann::json object = nlohmann::json::parse(text, nullptr, false);
    try {
        FleetRequest request;
        object.at("broker").get_to(request.broker);
        object.at("caFile").get_to(request.caFile);
        object.at("word").get_to(request.word);
        object.at("source").get_to(request.source);
        object.at("text").get_to(request.text);
        object.at("group").get_to(request.group);
        object.at("decoders").get_to(request.decoders);
        object.at("json").get_to(request.json);
        return request;
    } catch (const nlohmann::json::exception&) {
        throw Refused("decoder-fleet is started by decoderctl --fleet, with a request on its input");
    }
}

} // namespace mqtt

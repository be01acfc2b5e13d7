// What the panel tells about the decoders of a site. Pure; any thread.
#pragma once

#include "appliance/mqtt/fleet/fleet_view.h"

#include <nlohmann/json_fwd.hpp>
#include <vector>

namespace panel {

// The decoders in the order of their names. It changes only when something changed that people want to know: not with
// each sign of life.
nlohmann::json fleetDecodersJson(const std::vector<mqtt::FleetDecoder>& decoders);

// For Prometheus: [{"targets": ["hall.example:8088"], "labels": {...}}]. Decoders without a panel are left out.
nlohmann::json fleetTargetsJson(const std::vector<mqtt::FleetDecoder>& decoders, const std::string& site);

} // namespace panel

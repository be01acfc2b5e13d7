// The command line of `camera-gateway`.
#pragma once

#include "appliance/serving/command_line.h"

#include <cstdint>
#include <optional>
#include <string>

namespace gateway {

struct GatewayOptions {
    std::optional<std::uint16_t> port; // nothing: the parameter "Gateway.Port"; 0: any free port
    bool probe = false;                // says what a camera is, and exits
    bool readUrl = false;              // reads a camera's URL, and exits
};

struct GatewayCommandLine {
    std::optional<GatewayOptions> options; // nothing: finish(end)
    CommandLineEnd end;
};

GatewayCommandLine parseGatewayCommandLine(int argc, const char* const* argv);

} // namespace gateway

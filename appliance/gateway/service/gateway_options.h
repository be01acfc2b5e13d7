// The command line of `camera-gateway`.
#pragma once

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
    std::optional<GatewayOptions> options; // none: print `message` and exit
    int exitStatus = 0;                    // 0 after --help, 2 after a mistake
    std::string message;
};

GatewayCommandLine parseGatewayCommandLine(int argc, const char* const* argv);

} // namespace gateway

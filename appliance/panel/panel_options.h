// The command line of `decoder-panel` and the parameters Panel.*.
#pragma once

#include "appliance/panel/access/access.h"
#include "appliance/panel/web/server.h"
#include "appliance/serving/command_line.h"

#include <cstdint>
#include <optional>
#include <string>

namespace panel {

struct PanelOptions {
    std::optional<std::string> address; // nothing: the parameter
    std::optional<std::uint16_t> port;
    bool link = false; // prints a one-time link
};

struct PanelCommandLine {
    std::optional<PanelOptions> options; // nothing: finish(end)
    CommandLineEnd end;
};

PanelCommandLine parsePanelCommandLine(int argc, const char* const* argv);

enum class Tls { No, Own, Files };

// All settings of the panel.
struct PanelSettings {
    ServerOptions server;
    AccessOptions access;
    Tls tls = Tls::No;
};

// From the parameters, and from the command line where it says something else. Throws Refused when they can't be used.
PanelSettings readPanelSettings(const PanelOptions& options);

// 127.0.0.0/8 or ::1.
bool isLoopback(const std::string& address);

} // namespace panel

#include "appliance/gateway/service/gateway_options.h"

#include "appliance/serving/command_line.h"

#include <CLI/CLI.hpp>

namespace gateway {
namespace {

constexpr const char* footer = "Every source of the decoder that has a URL is the gateway's: [Encoder.Yard] "
                               "with URL = rtsp://camera/stream is\n"
                               "enough, and the gateway adds the other keys. When it listens, it prints "
                               "\"port=NUMBER\" on standard output. SIGINT\n"
                               "and SIGTERM end it with exit status 0.";

} // namespace

GatewayCommandLine parseGatewayCommandLine(int argc, const char* const* argv) {
    CLI::App app{"The decoder's gateway: makes a source of any camera, without decoding its pictures.",
                 "camera-gateway"};
    GatewayOptions options;
    app.add_option("--port", options.port,
                   "the port for players, instead of the parameter Gateway.Port; 0 is any")
        ->type_name("PORT");
    app.add_flag(
        "--probe", options.probe,
        "connect to one camera, print what it is, and exit; URL, user name and password are three lines of "
        "standard input");
    app.add_flag("--read-url", options.readUrl, "the same without a connection");
    app.footer(footer);
    if (const auto end = readCommandLine(app, HOUSE_VERSION, argc, argv))
        return {std::nullopt, *end};
    return {options, {}};
}

} // namespace gateway

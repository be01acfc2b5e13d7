// decoder-mqtt: connects the decoder to an MQTT broker.
#include "appliance/mqtt/service.h"

#include <CLI/CLI.hpp>
#include <cstdio>

int main(int argc, char** argv) {
    bool clear = false;
    CLI::App app(
        "Connects the decoder to the MQTT broker of its configuration: publishes what it does, takes "
        "commands, and raises alarms for the messages of detectors.",
        "decoder-mqtt");
    app.set_version_flag("--version", HOUSE_VERSION_TEXT);
    app.add_flag("--clear", clear, "Remove everything that the broker keeps about this decoder, and exit");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    if (clear) {
        const std::string failure = mqtt::forgetDecoder();
        if (!failure.empty()) {
            std::fprintf(stderr, "decoder-mqtt: %s\n", failure.c_str());
        }
        return failure.empty() ? 0 : 1;
    }
    mqtt::Service().run();
    return 0;
}

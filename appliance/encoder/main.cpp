// `video-encoder`. Its options are in device/encoder_options.h.
#include "appliance/encoder/device/device.h"
#include "appliance/encoder/device/encoder_options.h"
#include "appliance/encoder/server/server.h"

#include <csignal>
#include <cstdio>
#include <string>

namespace {

std::string portLine(const Server& server) {
    std::string line = "http=" + std::to_string(server.port(PortRole::Http)) +
                       " rtsp=" + std::to_string(server.port(PortRole::Rtsp)) +
                       " https=" + std::to_string(server.port(PortRole::Https));
    if (server.port(PortRole::Control) != 0)
        line += " control=" + std::to_string(server.port(PortRole::Control));
    return line;
}

} // namespace

int main(int argc, char** argv) {
    const CommandLine commandLine = parseCommandLine(argc, argv);
    if (!commandLine.options)
        return finish(commandLine.end);

    // Blocked before there are other threads, so that only sigwait() receives them.
    sigset_t endSignals;
    sigemptyset(&endSignals);
    sigaddset(&endSignals, SIGINT);
    sigaddset(&endSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &endSignals, nullptr);

    if (const std::string mistake = Device::mistakeIn(*commandLine.options); !mistake.empty()) {
        std::fprintf(stderr, "video-encoder: %s\n", mistake.c_str());
        return 2;
    }
    Device device(*commandLine.options);
    Server server(device);
    if (const std::string error = server.start(); !error.empty()) {
        std::fprintf(stderr, "video-encoder: %s\n", error.c_str());
        return 1;
    }
    device.announce(portLine(server));
    int signal = 0;
    sigwait(&endSignals, &signal);
    server.stop();
    return 0;
}

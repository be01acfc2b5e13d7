// `video-encoder`: see options.h for what it can be told.
#include "appliance/encoder/device.h"
#include "appliance/encoder/options.h"
#include "appliance/encoder/server.h"

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
    if (!commandLine.options) {
        std::fputs(commandLine.message.c_str(), commandLine.exitStatus == 0 ? stdout : stderr);
        return commandLine.exitStatus;
    }

    // Blocked before there is any other thread, so that only sigwait() sees them.
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);

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
    sigwait(&ends, &signal);
    server.stop();
    return 0;
}

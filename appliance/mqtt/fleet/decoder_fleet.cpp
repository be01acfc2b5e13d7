// decoder-fleet: the part of decoderctl that speaks to a broker. Its request is on standard input (fleet_request.h).
#include "appliance/mqtt/fleet/fleet.h"

#include <libcommon/text.h>

#include <cstdio>
#include <cstring>
#include <exception>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>

namespace {

constexpr const char* help =
    "Usage: decoder-fleet\n\n"
    "Shows and drives all decoders of a broker. decoderctl --fleet starts it, with a "
    "request on its standard input.\n\n"
    "  --help      print this and exit\n"
    "  --version   print the version and exit\n";

} // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        std::fputs(help, stdout);
        return 0;
    }
    if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
        std::puts(HOUSE_VERSION);
        return 0;
    }
    if (argc != 1) {
        std::fputs("decoder-fleet: there are no other options than --help and --version\n", stderr);
        return 2;
    }
    const std::string text(std::istreambuf_iterator<char>(std::cin), {});
    bool json = false;
    try {
        const mqtt::FleetRequest request = mqtt::readFleetRequest(text);
        json = request.json;
        const int status = mqtt::runFleet(request, std::cout);
        std::cout.flush();
        return std::cout ? status : 1;
    } catch (const std::exception& error) {
        if (json) {
            std::cout << nlohmann::json{{"error", libcommon::printable(error.what())}}.dump() << '\n';
        }
        std::cerr << "decoderctl: " << libcommon::printable(error.what()) << '\n';
        return 1;
    }
}

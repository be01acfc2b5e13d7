// decoder-fleet: the part of decoderctl that speaks to a broker. Its request is on standard input (fleet_request.h).
#include "appliance/mqtt/fleet/fleet.h"
#include "appliance/serving/command_line.h"

#include <libcommon/text.h>

#include <exception>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>

namespace {

constexpr const char* purpose =
    "Shows and drives all decoders of a broker. decoderctl --fleet starts it, with a "
    "request on its standard input.";

} // namespace

int main(int argc, char** argv) {
    if (const auto end = readNoOptions(purpose, HOUSE_VERSION, argc, argv))
        return finish(*end);
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

// decoder-fleet: the part of decoderctl that speaks to a broker. Its request is on standard input (fleet_request.h).
#include "appliance/mqtt/fleet/fleet.h"

#include <libcommon/text.h>

#include <cstdlib>
#include <exception>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>

int main() {
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

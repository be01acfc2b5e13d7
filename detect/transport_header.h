// Reading the "Transport" header of a SETUP's answer. A pure function.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace detect {

// What the answer names; "" and 0 for what it does not.
struct TransportHeader {
    std::string destination; // "destination=": the multicast group
    std::uint16_t port = 0;  // "port=": the group's first port
    std::uint16_t serverPort = 0;
    std::uint16_t clientPort = 0;
};

// Parts are separated by ";" and known by how they begin; of a range of ports the first counts. Any bytes
// will do.
TransportHeader parseTransport(std::string_view value);

} // namespace detect

// Reads the "Transport" header in the answer to a SETUP. A pure function.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace detect {

// The parts of the answer; "" and 0 for a missing part.
struct TransportHeader {
    std::string destination; // "destination=": the multicast group
    std::uint16_t port = 0;  // "port=": the group's first port
    std::uint16_t serverPort = 0;
    std::uint16_t clientPort = 0;
};

// Parts are separated by ";" and recognised by their beginning; the first port of a range counts. Accepts any bytes.
TransportHeader parseTransport(std::string_view value);

} // namespace detect

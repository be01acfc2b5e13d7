// Where a multicast goes.
#pragma once

#include <cstdint>
#include <string>

struct MulticastPlace {
    std::string group;
    std::uint16_t port; // of RTP; RTCP has the port above it
};

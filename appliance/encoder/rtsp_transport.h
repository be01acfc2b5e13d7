// The Transport header of RTSP.
#pragma once

#include "appliance/encoder/sdp.h"

#include <cstdint>
#include <string>
#include <string_view>

// One way that a client wishes its packets to take.
struct Transport {
    enum class Kind { None, Multicast, Unicast, Interleaved };
    Kind kind = Kind::None;  // None: nothing that this encoder knows
    std::uint16_t first = 0; // Unicast: the client's ports; Interleaved: the channels, 0 to 255
    std::uint16_t second = 0;
};

Transport parseTransport(std::string_view text);

std::string multicastReply(const MulticastPlace& place);
std::string unicastReply(const Transport& wish, std::uint16_t serverPort);
std::string interleavedReply(const Transport& wish);

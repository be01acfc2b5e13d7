// The header of an RTP packet (RFC 3550).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace streams {

struct RtpPacket {
    bool marker = false;
    int payloadType = 0;
    std::uint16_t sequence = 0;
    std::uint32_t timestamp = 0;
    std::uint32_t source = 0; // SSRC
    std::string_view payload; // without the padding; a view into the packet's bytes
};

// Nothing for bytes that are not an RTP packet.
std::optional<RtpPacket> readRtp(std::string_view bytes);

// Replaces these values in the bytes of a packet that readRtp() has accepted.
void stampRtp(std::string& bytes, std::uint16_t sequence, std::uint32_t timestamp, std::uint32_t source);

// A packet without extensions.
std::string makeRtp(const RtpPacket& packet);

} // namespace streams

#include "appliance/streams/rtp/rtp_packet.h"

namespace streams {
namespace {

constexpr std::size_t headerBytes = 12;

std::uint32_t numberAt(std::string_view bytes, std::size_t at, std::size_t count) {
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < count; ++i)
        number = number << 8 | static_cast<std::uint8_t>(bytes[at + i]);
    return number;
}

void putNumber(std::string& bytes, std::size_t at, std::size_t count, std::uint32_t number) {
    for (std::size_t i = count; i > 0; --i, number >>= 8)
        bytes[at + i - 1] = static_cast<char>(number & 255);
}

} // namespace

std::optional<RtpPacket> readRtp(std::string_view bytes) {
    if (bytes.size() < headerBytes || static_cast<std::uint8_t>(bytes[0]) >> 6 != 2)
        return std::nullopt;
    const auto first = static_cast<std::uint8_t>(bytes[0]);
    const auto second = static_cast<std::uint8_t>(bytes[1]);
    std::size_t start = headerBytes + std::size_t{4} * (first & 15); // after the contributing sources
    if ((first & 0x10) != 0) {
        if (bytes.size() < start + 4)
            return std::nullopt;
        start += 4 + std::size_t{4} * numberAt(bytes, start + 2, 2);
    }
    const std::size_t padding = (first & 0x20) != 0 ? static_cast<std::uint8_t>(bytes.back()) : 0;
    if (bytes.size() < start + padding)
        return std::nullopt;
    return RtpPacket{.marker = (second & 0x80) != 0,
                     .payloadType = second & 0x7f,
                     .sequence = static_cast<std::uint16_t>(numberAt(bytes, 2, 2)),
                     .timestamp = numberAt(bytes, 4, 4),
                     .source = numberAt(bytes, 8, 4),
                     .payload = bytes.substr(start, bytes.size() - start - padding)};
}

void stampRtp(std::string& bytes, std::uint16_t sequence, std::uint32_t timestamp, std::uint32_t source) {
    putNumber(bytes, 2, 2, sequence);
    putNumber(bytes, 4, 4, timestamp);
    putNumber(bytes, 8, 4, source);
}

std::string makeRtp(const RtpPacket& packet) {
    std::string bytes(headerBytes, '\0');
    bytes[0] = static_cast<char>(0x80);
    bytes[1] = static_cast<char>((packet.marker ? 0x80 : 0) | packet.payloadType);
    stampRtp(bytes, packet.sequence, packet.timestamp, packet.source);
    bytes += packet.payload;
    return bytes;
}

} // namespace streams

#include "appliance/streams/rtp/reports.h"

#include <algorithm>

namespace streams {
namespace {

constexpr std::uint32_t reportWithBlock = 0x81c90007; // version, one block, type, length in words less one
constexpr std::uint32_t reportWithout = 0x80c90001;
constexpr std::uint32_t descriptionOfOne = 0x81ca0004;
constexpr int goodbyeType = 203;

void append(std::string& to, std::uint32_t word) {
    for (const int shift : {24, 16, 8, 0})
        to += static_cast<char>(word >> shift & 255);
}

void appendBlock(std::string& to, const ReceivedSoFar& received) {
    append(to, received.sender);
    append(to, 0); // losses are not told: cameras lower their quality for them
    append(to, received.highest);
    for (int i = 0; i < 3; ++i)
        append(to, 0);
}

} // namespace

std::string receiverReport(std::uint32_t reporter, const ReceivedSoFar& received) {
    std::string report;
    append(report, received.packets > 0 ? reportWithBlock : reportWithout);
    append(report, reporter);
    if (received.packets > 0)
        appendBlock(report, received);
    append(report, descriptionOfOne);
    append(report, reporter);
    return report + std::string("\1\7decoder\0\0\0", 12); // CNAME, padded
}

bool hasGoodbye(std::string_view packet) {
    while (packet.size() >= 8) {
        const auto byte = [&](std::size_t at) { return static_cast<std::uint8_t>(packet[at]); };
        if (byte(1) == goodbyeType)
            return true;
        const std::size_t length = 4 * (std::size_t{1} + (byte(2) << 8 | byte(3)));
        packet.remove_prefix(std::min(length, packet.size()));
    }
    return false;
}

} // namespace streams

#include "appliance/gateway/warm/transport_packets.h"

#include <cstdint>

namespace gateway {
namespace {

constexpr char syncByte = 0x47;
constexpr int programsTable = 0;
constexpr int streamsTable = 2;
constexpr int nullPacket = 0x1fff;

std::uint8_t byteAt(std::string_view bytes, std::size_t at) {
    return at < bytes.size() ? static_cast<std::uint8_t>(bytes[at]) : std::uint8_t{0};
}

bool beginsUnit(std::string_view packet) {
    return (byteAt(packet, 1) & 0x40) != 0;
}

std::string_view payloadOf(std::string_view packet) {
    const int control = byteAt(packet, 3) >> 4 & 3;
    if ((control & 1) == 0)
        return {};
    const std::size_t start = (control & 2) != 0 ? std::size_t{5} + byteAt(packet, 4) : 4;
    return start < packet.size() ? packet.substr(start) : std::string_view();
}

} // namespace

void transportPacketsIn(std::string_view bytes, const std::function<void(std::string_view packet)>& take) {
    for (; bytes.size() >= transportBytes; bytes.remove_prefix(transportBytes))
        if (bytes[0] == syncByte)
            take(bytes.substr(0, transportBytes));
}

int packetIdOf(std::string_view packet) {
    return (byteAt(packet, 1) & 0x1f) << 8 | byteAt(packet, 2);
}

bool beginsPicture(std::string_view packet) {
    constexpr std::string_view startCode("\0\0\1", 3);
    const std::string_view payload = payloadOf(packet);
    return beginsUnit(packet) && payload.starts_with(startCode) && (byteAt(payload, 3) & 0xf0) == 0xe0;
}

bool beginsKeyPicture(std::string_view packet) {
    constexpr std::string_view sequenceHeader("\0\0\1\xb3", 4);
    return beginsPicture(packet) && payloadOf(packet).find(sequenceHeader) != std::string_view::npos;
}

bool hasTable(std::string_view packet) {
    const std::string_view payload = payloadOf(packet);
    const int id = packetIdOf(packet);
    if (!beginsUnit(packet) || payload.empty() || id == nullPacket || beginsPicture(packet))
        return false;
    if (id == programsTable)
        return true;
    const std::size_t table = std::size_t{1} + byteAt(payload, 0); // after the pointer field
    return byteAt(payload, table) == streamsTable && payload.size() > table + 3 &&
           (byteAt(payload, table + 1) & 0xf0) == 0xb0;
}

} // namespace gateway

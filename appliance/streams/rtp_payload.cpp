#include "appliance/streams/rtp_payload.h"

#include <cstddef>
#include <cstdint>

namespace streams {
namespace {

std::string caps(const char* media, int payloadType, int clockRate, const char* encodingName) {
    return std::string("application/x-rtp,media=") + media + ",payload=" + std::to_string(payloadType) +
           ",clock-rate=" + std::to_string(clockRate) + ",encoding-name=" + encodingName;
}

} // namespace

std::string capsOfPayloadType(int type) {
    switch (type) {
    case 0:
        return caps("audio", type, 8000, "PCMU");
    case 8:
        return caps("audio", type, 8000, "PCMA");
    case 14:
        return caps("audio", type, 90000, "MPA");
    case 26:
        return caps("video", type, 90000, "JPEG");
    case 32:
        return caps("video", type, 90000, "MPV");
    case 33:
        return caps("video", type, 90000, "MP2T");
    default:
        return "";
    }
}

std::string capsOfPacket(std::string_view packet) {
    constexpr std::size_t headerBytes = 12;
    constexpr std::size_t transportPacketBytes = 188;
    constexpr char transportSync = 0x47;
    constexpr int firstDynamicType = 96;
    if (packet.size() <= headerBytes || (static_cast<std::uint8_t>(packet[0]) >> 6) != 2)
        return "";
    const int type = static_cast<std::uint8_t>(packet[1]) & 0x7f;
    if (type < firstDynamicType)
        return capsOfPayloadType(type);
    const std::string_view payload = packet.substr(headerBytes);
    const bool transport = payload.size() % transportPacketBytes == 0 && payload[0] == transportSync;
    return caps("video", type, 90000, transport ? "MP2T" : "MPV");
}

std::string encodingNameIn(const std::string& caps) {
    constexpr std::string_view field = ",encoding-name=";
    constexpr std::string_view type = "(string)";
    const std::size_t found = caps.find(field);
    if (found == std::string::npos)
        return "";
    std::string_view rest = std::string_view(caps).substr(found + field.size());
    if (rest.starts_with(type))
        rest.remove_prefix(type.size());
    return std::string(rest.substr(0, rest.find_first_of(",;")));
}

std::string capsField(std::string_view name, std::string_view text) {
    constexpr std::string_view plain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-+/:.";
    std::string field = "," + std::string(name) + "=(string)";
    if (!text.empty() && text.find_first_not_of(plain) == std::string_view::npos)
        return field.append(text);
    field += '"';
    for (const char c : text) {
        if (c == '"' || c == '\\')
            field += '\\';
        field += c;
    }
    return field + '"';
}

} // namespace streams

#include "appliance/streams/rtp_payload.h"

#include <cstddef>
#include <cstdint>
#include <gst/gst.h>

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
    GstCaps* parsed = gst_caps_from_string(caps.c_str());
    const bool any = parsed != nullptr && gst_caps_get_size(parsed) > 0;
    const char* name =
        any ? gst_structure_get_string(gst_caps_get_structure(parsed, 0), "encoding-name") : nullptr;
    std::string found = name == nullptr ? "" : name;
    if (parsed != nullptr)
        gst_caps_unref(parsed);
    return found;
}

} // namespace streams

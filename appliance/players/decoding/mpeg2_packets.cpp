#include "appliance/players/decoding/mpeg2_packets.h"

#include "appliance/streams/rtp/rtp_packet.h"

#include <utility>

namespace player {
namespace {

// The video without the header of RFC 2250, which is longer when the MPEG-2 extension follows.
std::string_view videoOf(std::string_view payload) {
    constexpr std::size_t headerBytes = 4;
    constexpr unsigned extended = 0x04;
    if (payload.empty())
        return payload;
    const bool hasExtension = (static_cast<unsigned char>(payload[0]) & extended) != 0;
    return payload.substr(std::min(payload.size(), headerBytes * (hasExtension ? 2 : 1)));
}

} // namespace

Mpeg2Packets::Mpeg2Packets(bool transport, Mpeg2Units::Take take)
    : transport_(transport), units_(std::move(take)),
      reader_(streams::Mpeg2Container::transport,
              [this](std::string_view video) { units_.feed(video, shown_); }) {}

void Mpeg2Packets::add(std::string_view bytes, bool shown) {
    const auto packet = streams::readRtp(bytes);
    if (!packet)
        return;
    if (begun_ && packet->sequence != static_cast<std::uint16_t>(sequence_ + 1))
        units_.lose();
    begun_ = true;
    sequence_ = packet->sequence;
    shown_ = shown;
    if (transport_) {
        reader_.feed(packet->payload);
        return;
    }
    units_.feed(videoOf(packet->payload), shown);
    if (packet->marker)
        units_.end();
}

} // namespace player

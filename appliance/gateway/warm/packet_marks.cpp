#include "appliance/gateway/warm/packet_marks.h"

#include "appliance/gateway/warm/transport_packets.h"

namespace gateway {

PacketMarks::PacketMarks(const std::string& encodingName)
    : encoding_(streams::encodingOf(encodingName)), transport_(encodingName == "MP2T") {}

bool PacketMarks::knows(const std::string& encodingName) {
    return encodingName == "MP2T" || streams::knowsKeyPictures(streams::encodingOf(encodingName));
}

KeptItem PacketMarks::mark(const streams::Packet& whole) {
    KeptItem item;
    item.kind = streams::KeptFrame::video;
    item.bytes = whole;
    const auto packet = streams::readRtp(*whole);
    if (!packet)
        return item;
    item.unit = packet->timestamp;
    // A packet of an earlier picture may come late. A large step is a sender that begins anew.
    const auto ahead = static_cast<std::int32_t>(packet->timestamp - newest_);
    constexpr std::int32_t longAgo = -90000;
    item.newPicture = !begun_ || ahead > 0 || ahead < longAgo;
    if (item.newPicture)
        newest_ = packet->timestamp;
    begun_ = true;
    const bool key = transport_ ? transportKey(*whole, *packet, item)
                                : streams::kindOf(encoding_, packet->payload).keyPicture;
    item.key = key && (!hasKey_ || key_ != packet->timestamp);
    if (item.key) {
        hasKey_ = true;
        key_ = packet->timestamp;
    }
    return item;
}

bool PacketMarks::transportKey(std::string_view bytes, const streams::RtpPacket& packet, KeptItem& item) {
    bool key = false;
    bool tables = false;
    transportPacketsIn(packet.payload, [&](std::string_view one) {
        key = key || beginsKeyPicture(one);
        tables = tables || hasTable(one);
    });
    if (tables)
        tables_ = bytes;
    if (key && !tables && !tables_.empty()) {
        streams::stampRtp(tables_, static_cast<std::uint16_t>(packet.sequence - 1), packet.timestamp,
                          packet.source);
        item.before = std::make_shared<const std::string>(tables_);
    }
    return key;
}

} // namespace gateway

// Finds pictures and key pictures among the RTP packets of a stream, which may come in any order.
#pragma once

#include "appliance/gateway/warm/kept_group.h"
#include "appliance/streams/rtp/payload_kind.h"
#include "appliance/streams/rtp/rtp_packet.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace gateway {

// For one thread.
class PacketMarks {
public:
    // `encodingName` as in the stream's description: "H264".
    explicit PacketMarks(const std::string& encodingName);

    // Whether key pictures can be recognised in streams with that encoding.
    static bool knows(const std::string& encodingName);

    // The packet as an item. Bytes that are not RTP are an item that nothing can begin with.
    KeptItem mark(const streams::Packet& packet);
    KeptItem mark(std::string_view packet) { return mark(std::make_shared<const std::string>(packet)); }

private:
    bool transportKey(std::string_view bytes, const streams::RtpPacket& packet, KeptItem& item);

    const streams::Encoding encoding_;
    const bool transport_; // MPEG-2 transport packets in RTP
    std::string tables_;   // transport: the last RTP packet with the tables that a demultiplexer needs
    bool begun_ = false;
    std::uint32_t newest_ = 0; // timestamp
    bool hasKey_ = false;
    std::uint32_t key_ = 0; // timestamp of the last key picture
};

} // namespace gateway

// Puts the packets of an RTP stream with MPEG-2 together to pictures: the video itself (RFC 2250), or a transport stream.
#pragma once

#include "appliance/players/decoding/mpeg2_units.h"
#include "appliance/streams/elementary_reader.h"

#include <cstdint>
#include <string_view>

namespace player {

// For one thread.
class Mpeg2Packets {
public:
    Mpeg2Packets(bool transport, Mpeg2Units::Take take);
    Mpeg2Packets(const Mpeg2Packets&) = delete; // reader_ points into it
    Mpeg2Packets& operator=(const Mpeg2Packets&) = delete;

    // Takes a packet, in order. Bytes that are not RTP are dropped. After a loss the present picture is dropped.
    void add(std::string_view packet, bool shown = true);

private:
    const bool transport_;
    Mpeg2Units units_;
    streams::ElementaryReader reader_;
    bool shown_ = true;
    bool begun_ = false;
    std::uint16_t sequence_ = 0; // of the last packet
};

} // namespace player

// Puts the packets of an RTP stream together to access units: what a decoder needs for one picture.
//
// H.264 (RFC 6184), H.265 (RFC 7798) and MPEG-4 Visual (RFC 6416). A unit is complete with the packet that has the marker
// bit, or when a packet with another time follows; nothing waits longer. For one thread.
#pragma once

#include "appliance/streams/rtp/parameter_sets.h"
#include "appliance/streams/rtp/payload_kind.h"
#include "appliance/streams/rtp/rtp_packet.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace player {

class AccessUnits {
public:
    static constexpr std::size_t unitLimit = 8 * 1024 * 1024; // longer units are dropped

    // Gets each complete unit; NAL units have start codes. The first unit is a key picture. `shown` is that of the unit's
    // last packet.
    using Take = std::function<void(const std::string& unit, bool shown)>;

    // `fmtp` of the stream's description may have parameter sets. They are repeated before key pictures that come without.
    AccessUnits(streams::Encoding encoding, std::string_view fmtp, Take take);

    // Takes a packet, in order. Bytes that are not RTP are dropped. After a loss the begun unit is dropped, and with H.264
    // everything up to the next key picture, because its decoder would show damaged pictures.
    void add(std::string_view packet, bool shown = true);

private:
    void begin(const streams::RtpPacket& packet);
    void finish();
    void loseUnit();
    void addPayload(std::string_view payload);
    void addH264(std::string_view payload);
    void addH265(std::string_view payload);
    void addAggregate(std::string_view units);
    void addFragment(std::string_view data, std::string_view unitHeader, bool first, bool last);
    void addUnit(std::string_view unit);

    const streams::Encoding encoding_;
    streams::ParameterSets sets_;
    Take take_;
    std::string unit_;
    bool key_ = false;     // it is a key picture or has parameter sets
    bool hasSets_ = false; // it has parameter sets
    bool shown_ = true;
    bool fragment_ = false;      // the last packet had a part of a NAL unit, and its end is missing
    bool damaged_ = false;       // a part of the unit is missing
    bool keyed_ = false;         // a key picture came, and with H.264 no packet was lost since
    bool begun_ = false;         // a packet came
    std::uint16_t sequence_ = 0; // of the last packet
    std::uint32_t time_ = 0;     // of the unit
};

} // namespace player

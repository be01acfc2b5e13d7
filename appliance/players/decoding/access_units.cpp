#include "appliance/players/decoding/access_units.h"

#include <utility>

namespace player {
namespace {

using streams::Encoding;

constexpr std::string_view startCode("\0\0\0\1", 4);

std::uint8_t byteAt(std::string_view bytes, std::size_t at) {
    return static_cast<std::uint8_t>(bytes[at]);
}

} // namespace

AccessUnits::AccessUnits(Encoding encoding, std::string_view fmtp, Take take)
    : encoding_(encoding), sets_(encoding, fmtp), take_(std::move(take)) {}

void AccessUnits::add(std::string_view bytes, bool shown) {
    const auto packet = streams::readRtp(bytes);
    if (!packet)
        return;
    const bool lost = begun_ && packet->sequence != static_cast<std::uint16_t>(sequence_ + 1);
    if (begun_ && packet->timestamp != time_)
        finish();
    if (lost)
        loseUnit();
    begin(*packet);
    shown_ = shown;
    addPayload(packet->payload);
    if (packet->marker)
        finish();
}

void AccessUnits::begin(const streams::RtpPacket& packet) {
    begun_ = true;
    sequence_ = packet.sequence;
    time_ = packet.timestamp;
}

// A packet is missing, of this unit or of the one before.
void AccessUnits::loseUnit() {
    damaged_ = true;
    fragment_ = false;
    if (encoding_ == Encoding::h264)
        keyed_ = false;
}

void AccessUnits::finish() {
    const bool damaged = std::exchange(damaged_, false);
    const bool key = std::exchange(key_, false);
    const bool hasSets = std::exchange(hasSets_, false);
    fragment_ = false;
    std::string unit = std::exchange(unit_, {});
    if (unit.empty() || damaged)
        return;
    keyed_ = keyed_ || key;
    if (!keyed_)
        return;
    if (key && !hasSets) {
        std::string sets;
        for (const std::string& set : sets_.all())
            sets.append(startCode).append(set);
        unit.insert(0, sets);
    }
    take_(unit, shown_);
}

void AccessUnits::addPayload(std::string_view payload) {
    if (payload.empty())
        return;
    const streams::PayloadKind kind = streams::kindOf(encoding_, payload);
    key_ = key_ || kind.keyPicture;
    if (kind.parameterSet) {
        hasSets_ = true;
        sets_.learn(payload);
    }
    if (encoding_ == Encoding::h264)
        addH264(payload);
    else if (encoding_ == Encoding::h265)
        addH265(payload);
    else
        unit_.append(payload);
    if (unit_.size() > unitLimit) {
        unit_.clear();
        damaged_ = true;
    }
}

void AccessUnits::addH264(std::string_view payload) {
    constexpr int aggregateA = 24;
    constexpr int aggregateB = 25;
    constexpr int fragmentA = 28;
    constexpr int fragmentB = 29;
    constexpr std::size_t orderBytes = 2; // the decoding order number
    const int type = byteAt(payload, 0) & 31;
    if (type == aggregateA || type == aggregateB) {
        const std::size_t header = 1 + (type == aggregateB ? orderBytes : 0);
        addAggregate(payload.substr(std::min(header, payload.size())));
    } else if (type == fragmentA || type == fragmentB) {
        if (payload.size() < 2)
            return;
        const int info = byteAt(payload, 1);
        const char unitHeader = static_cast<char>((byteAt(payload, 0) & 0xe0) | (info & 31));
        const bool first = (info & 0x80) != 0;
        const std::size_t header = 2 + (type == fragmentB && first ? orderBytes : 0);
        addFragment(payload.substr(std::min(header, payload.size())), {&unitHeader, 1}, first,
                    (info & 0x40) != 0);
    } else if (type < aggregateA) {
        addUnit(payload);
    }
}

void AccessUnits::addH265(std::string_view payload) {
    constexpr int aggregate = 48;
    constexpr int fragment = 49;
    if (payload.size() < 3)
        return;
    const int type = byteAt(payload, 0) >> 1 & 63;
    if (type == aggregate) {
        addAggregate(payload.substr(2));
    } else if (type == fragment) {
        const int info = byteAt(payload, 2);
        const char unitHeader[2] = {static_cast<char>((byteAt(payload, 0) & 0x81) | (info & 63) << 1),
                                    payload[1]};
        addFragment(payload.substr(3), {unitHeader, 2}, (info & 0x80) != 0, (info & 0x40) != 0);
    } else if (type < aggregate) {
        addUnit(payload);
    }
}

// NAL units, each with its length in two bytes before it.
void AccessUnits::addAggregate(std::string_view units) {
    while (units.size() > 2) {
        const std::size_t length = static_cast<std::size_t>(byteAt(units, 0)) << 8 | byteAt(units, 1);
        units.remove_prefix(2);
        if (length > units.size()) {
            damaged_ = true;
            return;
        }
        addUnit(units.substr(0, length));
        units.remove_prefix(length);
    }
}

void AccessUnits::addFragment(std::string_view data, std::string_view unitHeader, bool first, bool last) {
    if (first)
        addUnit(unitHeader);
    else if (!fragment_)
        damaged_ = true; // its beginning is missing
    unit_.append(data);
    fragment_ = !last;
}

void AccessUnits::addUnit(std::string_view unit) {
    if (!unit.empty())
        unit_.append(startCode).append(unit);
}

} // namespace player

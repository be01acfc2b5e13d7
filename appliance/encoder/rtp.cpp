#include "appliance/encoder/rtp.h"

#include "appliance/encoder/access_unit.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <random>
#include <utility>

namespace {

constexpr std::uint32_t clockRate = 90000;
constexpr std::int64_t nanoseconds = 1000000000;
constexpr std::uint64_t secondsFrom1900To1970 = 2208988800ULL;
constexpr std::size_t mpegVideoHeader = 4;

std::uint32_t randomNumber() {
    static thread_local std::mt19937 random(std::random_device{}());
    return static_cast<std::uint32_t>(random());
}

void put16(std::string& text, std::uint32_t value) {
    text += static_cast<char>(value >> 8);
    text += static_cast<char>(value);
}

void put32(std::string& text, std::uint32_t value) {
    put16(text, value >> 16);
    put16(text, value & 0xFFFF);
}

std::vector<std::string> cut(std::string_view bytes, std::size_t limit) {
    std::vector<std::string> parts;
    for (std::size_t at = 0; at < bytes.size(); at += limit)
        parts.emplace_back(bytes.substr(at, limit));
    return parts;
}

// What the header before every part of an MPEG-2 picture says of the picture.
struct MpegPicture {
    std::uint32_t number = 0; // within its group
    std::uint32_t type = 0;   // 1 key, 2 predicted, 3 in both directions
    bool sequenceHeader = false;
};

MpegPicture mpegPictureOf(std::string_view bytes) {
    MpegPicture picture;
    for (const std::string_view piece : piecesOf(bytes)) {
        const auto value = static_cast<std::uint8_t>(piece.front());
        if (value == 0xB3)
            picture.sequenceHeader = true;
        if (value != 0 || piece.size() < 3)
            continue;
        const auto high = static_cast<std::uint8_t>(piece[1]);
        const auto low = static_cast<std::uint8_t>(piece[2]);
        picture.number = static_cast<std::uint32_t>(high) << 2 | low >> 6;
        picture.type = low >> 3 & 7;
        break;
    }
    return picture;
}

} // namespace

// Slices are kept whole where they fit, so that a lost packet costs as little of the picture as can be.
std::vector<std::string> mpegVideoPayloads(std::string_view picture, std::size_t limit) {
    struct Part {
        std::string bytes;
        bool beginsSlice, endsSlice;
    };
    constexpr std::string_view startCode("\0\0\1", 3);
    const std::size_t room = limit - mpegVideoHeader;
    std::vector<Part> parts;
    Part open{{}, true, true};
    for (std::size_t at = 0; at < picture.size();) {
        const std::size_t end = std::min(picture.find(startCode, at + 3), picture.size());
        const std::string_view piece = picture.substr(at, end - at);
        at = end;
        if (open.bytes.size() + piece.size() > room && !open.bytes.empty())
            parts.push_back(std::exchange(open, {{}, true, true}));
        if (piece.size() <= room) {
            open.bytes += piece;
            continue;
        }
        const std::vector<std::string> fragments = cut(piece, room);
        for (std::size_t i = 0; i < fragments.size(); ++i)
            parts.push_back({fragments[i], i == 0, i + 1 == fragments.size()});
    }
    if (!open.bytes.empty())
        parts.push_back(std::move(open));

    const MpegPicture kind = mpegPictureOf(picture);
    std::vector<std::string> payloads;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        std::string payload;
        put32(payload, kind.number << 16 | (i == 0 && kind.sequenceHeader ? 1U << 13 : 0) |
                           (parts[i].beginsSlice ? 1U << 12 : 0) | (parts[i].endsSlice ? 1U << 11 : 0) |
                           kind.type << 8);
        payloads.push_back(payload + parts[i].bytes);
    }
    return payloads;
}

RtpStream::RtpStream(int payloadType)
    : payloadType_(payloadType), source_(randomNumber()), timestampOffset_(randomNumber()),
      sequence_(static_cast<std::uint16_t>(randomNumber())) {}

std::uint32_t RtpStream::timestampAt(std::int64_t time) const {
    // In two steps: nanoseconds times the clock rate would not fit for a machine that is up for some days.
    const std::int64_t ticks = time / nanoseconds * clockRate + time % nanoseconds * clockRate / nanoseconds;
    return static_cast<std::uint32_t>(ticks) + timestampOffset_;
}

std::string RtpStream::packet(std::string_view payload, bool marker, std::int64_t time) {
    std::string packet;
    packet.reserve(12 + payload.size());
    packet += '\x80';
    packet += static_cast<char>((marker ? 0x80 : 0) | payloadType_);
    put16(packet, sequence_++);
    put32(packet, timestampAt(time));
    put32(packet, source_);
    packet += payload;
    ++packets_;
    bytes_ += static_cast<std::uint32_t>(payload.size());
    return packet;
}

std::string RtpStream::report(bool last) const {
    using std::chrono::duration_cast;
    const auto wall = std::chrono::system_clock::now().time_since_epoch();
    const auto wallNs = static_cast<std::uint64_t>(duration_cast<std::chrono::nanoseconds>(wall).count());
    const std::int64_t now = std::chrono::steady_clock::now().time_since_epoch().count();
    std::string report("\x80\xC8", 2);
    put16(report, 6);
    put32(report, source_);
    put32(report, static_cast<std::uint32_t>(wallNs / nanoseconds + secondsFrom1900To1970));
    put32(report, static_cast<std::uint32_t>((wallNs % nanoseconds << 32) / nanoseconds));
    put32(report, timestampAt(now));
    put32(report, packets_);
    put32(report, bytes_);

    constexpr std::string_view name = "video-encoder";
    std::string description;
    put32(description, source_);
    description += '\x01';
    description += static_cast<char>(name.size());
    description += name;
    description.resize((description.size() / 4 + 1) * 4, '\0'); // at least one zero ends the list
    report += std::string("\x81\xCA", 2);
    put16(report, static_cast<std::uint32_t>(description.size() / 4));
    report += description;
    if (last) {
        report += std::string("\x81\xCB", 2);
        put16(report, 1);
        put32(report, source_);
    }
    return report;
}

// RTP and RTCP as bytes: cutting pictures into packets, and the reports that go with them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

constexpr int mpegVideoPayloadType = 32;
constexpr int mpegAudioPayloadType = 14;

constexpr std::size_t maxPayload = 1400; // bytes; with all headers below an Ethernet frame's 1500

// A picture of MPEG-2 cut into payloads, each at most `limit` bytes long; the last one is the picture's end.
std::vector<std::string> mpegVideoPayloads(std::string_view picture, std::size_t limit = maxPayload);

// One sender: numbers packets and counts what it sent. For one thread.
class RtpStream {
public:
    // Random start values, as they should be.
    explicit RtpStream(int payloadType);

    // A packet of the 90 kHz clock's `time` (of the steady clock, in nanoseconds).
    std::string packet(std::string_view payload, bool marker, std::int64_t time);

    // A sender report with the sender's name; `last` adds a goodbye.
    std::string report(bool last) const;

    std::uint32_t source() const { return source_; }

private:
    std::uint32_t timestampAt(std::int64_t time) const;

    int payloadType_;
    std::uint32_t source_;
    std::uint32_t timestampOffset_;
    std::uint16_t sequence_;
    std::uint32_t packets_ = 0;
    std::uint32_t bytes_ = 0;
};

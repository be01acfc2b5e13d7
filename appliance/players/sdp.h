// What an encoder's description says of its streams.
#pragma once

#include <optional>
#include <string>

namespace player {

struct SdpStream {
    std::string caps;         // of its RTP packets
    std::string encodingName; // "H264", ...
    std::string control;      // where to ask for it, absolute
};

struct SdpContent {
    std::optional<SdpStream> video; // the first that a player can decode
    std::optional<SdpStream> sound; // likewise
    std::string control;            // where to ask for all of them, absolute
};

// Reads a description that was asked for at `base`. Nothing without a video stream that can be decoded;
// `reason` then tells why.
std::optional<SdpContent> readSdp(const std::string& text, const std::string& base, std::string& reason);

// A control address against the description's own: absolute ones stand for themselves, "*" for the
// description's.
std::string resolveControl(const std::string& base, const std::string& control);

} // namespace player

// Reads an SDP description: where video and audio are sent. A pure function.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace detect {

struct SdpDescription {
    std::string videoAddress; // empty: no usable video
    std::uint16_t videoPort = 0;
    std::string audioAddress;
    std::uint16_t audioPort = 0;
    bool hasAudio = false;
};

// Accepts any bytes. With several sections of one kind the later values count; a zero byte ends the text.
SdpDescription parseSdp(std::string_view text);

} // namespace detect

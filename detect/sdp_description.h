// Reading an SDP description: where its video and its audio are sent. A pure function.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace detect {

struct SdpDescription {
    std::string videoAddress; // empty: no video that can be reached
    std::uint16_t videoPort = 0;
    std::string audioAddress;
    std::uint16_t audioPort = 0;
    bool hasAudio = false;
};

// Any bytes will do. Of several sections of one kind the later values hold; a zero byte ends the text.
SdpDescription parseSdp(std::string_view text);

} // namespace detect

// Packets for the tests of this folder.
#pragma once

#include "appliance/streams/rtp/rtp_packet.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace streams {

inline const std::string sequenceSet("\x67\x42\x00\x1e", 4);
inline const std::string pictureSet("\x68\xce\x3c\x80", 4);
inline const std::string keyPicture("\x65picture", 8);
inline const std::string otherPicture("\x41\x9apicture", 9);
inline const std::string intraPicture("\x41\xb0picture", 9);
inline const std::string recoveryMessage("\x06\x06\x01\x84\x80", 5);

// A packet that ends a picture of payload type 96.
inline std::string rtp(std::uint16_t sequence, std::uint32_t time, std::string_view payload,
                       std::uint32_t source = 7) {
    return makeRtp({.marker = true,
                    .payloadType = 96,
                    .sequence = sequence,
                    .timestamp = time,
                    .source = source,
                    .payload = payload});
}

} // namespace streams

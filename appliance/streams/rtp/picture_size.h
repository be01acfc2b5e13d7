// The size of a stream's pictures, from its parameter sets.
#pragma once

#include "appliance/streams/rtp/payload_kind.h"

#include <optional>
#include <string_view>

namespace streams {

struct PictureSize {
    int width;
    int height;
    bool operator==(const PictureSize&) const = default;
};

// From a sequence parameter set (H.264, H.265) with its NAL header. Nothing for other bytes and sizes beyond 16384.
std::optional<PictureSize> sizeOfSet(Encoding encoding, std::string_view set);

// From the payload of an RTP packet: sequence parameter sets, the headers of RTP's JPEG, MPEG-2 and MPEG-4.
std::optional<PictureSize> sizeInPayload(Encoding encoding, std::string_view payload);

// From a description's format parameters ("96 config=000001B0..."): of MPEG-4.
std::optional<PictureSize> sizeInFormat(Encoding encoding, std::string_view fmtp);

} // namespace streams

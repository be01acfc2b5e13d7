// The size of a stream's pictures, from its parameter sets.
#pragma once

#include "appliance/gateway/rtp/payload_kind.h"

#include <optional>
#include <string_view>

namespace gateway {

struct PictureSize {
    int width;
    int height;
    bool operator==(const PictureSize&) const = default;
};

// From a sequence parameter set (H.264, H.265) with its NAL header. Nothing for other bytes and sizes beyond 16384.
std::optional<PictureSize> sizeOfSet(Encoding encoding, std::string_view set);

// From the payload of an RTP packet: sequence parameter sets, and the header of RTP's JPEG.
std::optional<PictureSize> sizeInPayload(Encoding encoding, std::string_view payload);

} // namespace gateway

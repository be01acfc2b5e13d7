// Checks a JPEG picture before it is decoded.
#pragma once

#include <optional>
#include <string_view>

namespace streams {

struct JpegSize {
    int width;
    int height;
};

// The size of a picture that is complete (it has its start and end marker) and safe to decode; otherwise
// nothing. The limit is 4096 by 4096: without one, a hostile picture of a few bytes makes the decoder
// allocate gigabytes.
std::optional<JpegSize> wholeJpeg(std::string_view bytes);

} // namespace streams

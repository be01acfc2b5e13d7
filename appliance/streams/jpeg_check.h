// Checks a JPEG picture before it is decoded.
#pragma once

#include <optional>
#include <string_view>

namespace streams {

struct JpegSize {
    int width;
    int height;
};

// The size of a picture that is complete (it has its start and end marker); otherwise nothing. The size is what the
// picture says: a hostile picture of a few bytes can claim 65535 by 65535.
std::optional<JpegSize> wholeJpeg(std::string_view bytes);

} // namespace streams

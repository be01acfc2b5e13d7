// A look at a JPEG picture before it is handed to a decoder.
#pragma once

#include <optional>
#include <string_view>

namespace streams {

struct JpegSize {
    int width;
    int height;
};

// The size of a picture that is whole (it begins and ends as one) and of a kind and size that the decoder may
// be given; nothing else. A picture is at most 4096 by 4096: a few bytes of a hostile one may else ask for
// gigabytes.
std::optional<JpegSize> wholeJpeg(std::string_view bytes);

} // namespace streams

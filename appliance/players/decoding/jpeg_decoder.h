// Decodes JPEG pictures with libjpeg-turbo, straight to the planes of I420.
#pragma once

#include "appliance/screen/picture_shape.h"

#include <memory>
#include <optional>
#include <string_view>

namespace player {

inline constexpr int maxJpegSide = 8192; // pixels

// Pictures with other samplings of colour than 4:2:0 are brought to it; pictures larger than the screen can take are
// decoded at a half or less of their size. For one thread at a time.
class JpegDecoder {
public:
    JpegDecoder();
    JpegDecoder(const JpegDecoder&) = delete;
    JpegDecoder& operator=(const JpegDecoder&) = delete;
    ~JpegDecoder();

    // Decodes a complete picture. It is valid until the next call. Nothing when it can't be decoded; a picture in
    // colours or a size that is not supported is logged the first time. A damaged picture is decoded as far as possible.
    std::optional<screen::PictureView> decode(std::string_view jpeg);

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace player

// Decodes H.264, H.265 and MPEG-4 with libavcodec.
#pragma once

#include "appliance/screen/picture_shape.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace player {

// Decodes on the caller's thread: each more thread would delay the picture by one frame. Pictures in I420 and NV12 are
// given as they are in the decoder's memory; those in other formats are converted to I420 and those that are too large
// for the screen are scaled down. Pictures with errors are left out. For one thread at a time.
class AvDecoder {
public:
    using Give = std::function<void(const screen::PictureView&)>;

    AvDecoder();
    AvDecoder(const AvDecoder&) = delete;
    AvDecoder& operator=(const AvDecoder&) = delete;
    ~AvDecoder();

    // Opens the decoder: "h264", "hevc" or "mpeg4", with the stream's own description of the codec, which may be empty.
    // False with a log line when there is no such decoder.
    bool open(const std::string& codec, const std::uint8_t* description, std::size_t bytes);

    // Decodes one access unit and calls `give` for each picture that is complete with it; it is valid during the call.
    // False when the unit is broken.
    bool decode(const std::uint8_t* unit, std::size_t bytes, const Give& give);

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace player

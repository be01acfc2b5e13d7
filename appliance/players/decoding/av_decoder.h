// Decodes H.264, H.265, MPEG-4 and MPEG-2 with libavcodec.
#pragma once

#include "appliance/players/decoding/module.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace player {

// Decodes on the caller's thread: each more thread would delay the picture by one frame. The first picture is given at
// once, even if the decoder would wait for others that might belong before it. Pictures in I420 and NV12 are
// given as they are in the decoder's memory; those in other formats are converted to I420 and those that are too large
// for the screen are scaled down. Pictures with errors are left out. For one thread at a time.
class AvDecoder : public UnitDecoder {
public:
    AvDecoder();
    ~AvDecoder() override;

    bool open(const std::string& codec, const std::uint8_t* description, std::size_t bytes) override;
    bool decode(const std::uint8_t* unit, std::size_t bytes, const Give& give) override;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace player

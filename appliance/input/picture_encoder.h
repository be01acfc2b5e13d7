// Encodes pictures of any size and colours: as H.264, or as MPEG-4 where libav has no encoder for H.264.
#pragma once

#include "appliance/input/av_objects.h"

#include <cstdint>
#include <functional>

namespace input {

// For one thread.
class PictureEncoder {
public:
    // Gets each encoded picture, its times in microseconds.
    using Take = std::function<void(const AVCodecParameters& parameters, AVPacket& packet)>;
    explicit PictureEncoder(Take take) : take_(std::move(take)) {}

    // `time` in microseconds, rising. Throws InputFailure when the picture can't be encoded.
    void encode(const AVFrame& picture, std::int64_t time);

private:
    bool fits(const AVFrame& picture) const;
    void open(const AVFrame& picture);
    const AVFrame& prepared(const AVFrame& picture);

    Take take_;
    Av<AVCodecContext> encoder_;
    Av<AVCodecParameters> parameters_;
    Av<SwsContext> scaler_;
    Av<AVFrame> converted_{av_frame_alloc()};
    Av<AVPacket> packet_{av_packet_alloc()};
    int width_ = 0; // of the pictures that come in
    int height_ = 0;
    int format_ = AV_PIX_FMT_NONE;
    std::int64_t keyTime_ = 0; // of the last key picture
    std::int64_t lastTime_ = INT64_MIN;
};

} // namespace input

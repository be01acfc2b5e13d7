// One video codec: encodes each picture into one access unit, without delay.
//
// It uses libavcodec directly. GStreamer's elements for it count time in nanoseconds: MPEG-2 refuses that, and MPEG-4
// writes wrong times into the stream.
#pragma once

#include "appliance/encoder/codecs/access_unit.h"
#include "appliance/encoder/pictures/raw_picture.h"

#include <memory>
#include <string>

struct CodecSettings {
    Codec codec = Codec::Mpeg4;
    int keyInterval = 12; // pictures from one key picture to the next
    bool keyForNewcomer = true;
    int bitrate = 0; // kilobits per second; 0: constant quality instead
};

// For one thread.
class VideoEncoder {
public:
    // Null if the machine does not have the codec, or the codec does not accept this size and rate.
    static std::unique_ptr<VideoEncoder> open(const CodecSettings& settings, int width, int height, int fps);
    ~VideoEncoder();
    VideoEncoder(const VideoEncoder&) = delete;
    VideoEncoder& operator=(const VideoEncoder&) = delete;

    // The picture must have the size that was given to open(). Empty after a failure.
    std::string encode(const Picture& picture, bool asKey);

    // Whether this machine has the codec.
    static bool has(Codec codec);

private:
    struct State;
    explicit VideoEncoder(std::unique_ptr<State> state);
    std::unique_ptr<State> state_;
};

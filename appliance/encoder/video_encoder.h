// One encoder of one codec: pictures in, access units out, one for one and at once.
//
// The codecs are libavcodec's own. GStreamer's elements for them count in nanoseconds, which MPEG-2 refuses
// and which makes MPEG-4 write broken times into the stream.
#pragma once

#include "appliance/encoder/access_unit.h"
#include "appliance/encoder/picture.h"

#include <memory>
#include <string>

struct CodecSettings {
    Codec codec = Codec::Mpeg4;
    int keyInterval = 12; // pictures from one key picture to the next
    bool keyForNewcomer = true;
    int bitrate = 0; // kilobits a second; 0: an even quality instead
};

// For one thread.
class VideoEncoder {
public:
    // Null when the machine has no such codec or it cannot be opened for the size and rate.
    static std::unique_ptr<VideoEncoder> open(const CodecSettings& settings, int width, int height, int fps);
    ~VideoEncoder();
    VideoEncoder(const VideoEncoder&) = delete;
    VideoEncoder& operator=(const VideoEncoder&) = delete;

    // The picture must have the size that the encoder was opened for. Empty after a failure.
    std::string encode(const Picture& picture, bool asKey);

    // Whether this machine has the codec.
    static bool has(Codec codec);

private:
    struct State;
    explicit VideoEncoder(std::unique_ptr<State> state);
    std::unique_ptr<State> state_;
};

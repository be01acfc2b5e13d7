// The way of one stream from its container to the gateway: handed on as it is, or decoded and encoded anew.
#pragma once

#include "appliance/input/output.h"

#include <memory>

namespace input {

// For one thread.
class Track {
public:
    virtual ~Track() = default;

    // Takes a packet of the container, in the order of decoding; `unit` gives its times. Throws InputFailure.
    virtual void take(AVPacket& packet, AVRational unit) = 0;
    // The next packet is the container's first one again.
    virtual void rewind() {}
};

// A video stream. `first` is its first packet, if one is known: it decides whether RTP can carry Motion JPEG.
std::unique_ptr<Track> videoTrack(Output& output, const AVCodecParameters& parameters, const AVPacket* first);

// A sound stream; null when there is no way for it.
std::unique_ptr<Track> soundTrack(Output& output, const AVCodecParameters& parameters);

} // namespace input

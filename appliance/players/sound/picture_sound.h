// The sound that belongs to a picture. What decodes and plays it is loaded when the picture is shown, so that it never delays
// the picture. A failure of the sound never affects the picture.
#pragma once

#include "appliance/players/decoding/module.h"
#include "appliance/players/decoding/stream_sink.h"
#include "appliance/streams/http_stream.h"

#include <atomic>
#include <string>
#include <string_view>

namespace player {

// Whether sound in that encoding ("PCMU") can be decoded.
bool decodesSound(const std::string& encodingName);

// A player's patience with the end of its sound, in milliseconds: fading out, and the device's latency.
inline constexpr int soundEndMs = 390;

class PictureSound {
public:
    // `sink` must outlive the object.
    explicit PictureSound(const StreamSink& sink) : sink_(sink) {}
    PictureSound(const PictureSound&) = delete;
    PictureSound& operator=(const PictureSound&) = delete;
    // Never destroyed: its threads run until the process ends.

    // Plays the sound from that address, on a thread of its own, from the time when the picture is shown. Any thread, once.
    void playHttp(const streams::HttpSource& source, bool verbose);

    // Prepares for packets with these caps, on a thread of its own, when the picture is shown. Only the first call counts: a
    // stream that comes from elsewhere goes on with the same sound. Any thread.
    void beginRtp(const std::string& caps);
    // Takes a packet; drops it while nothing plays it. For one thread.
    void feedRtp(std::string_view packet);

    // Fades out, because the player ends; waits for that, but not longer than soundEndMs. Any thread.
    void end();

private:
    SoundPlayer* load();

    const StreamSink& sink_;
    std::atomic<SoundPlayer*> player_{nullptr}; // null: not loaded
    std::atomic<bool> begun_{false};
    std::atomic<bool> takesPackets_{false};
};

} // namespace player

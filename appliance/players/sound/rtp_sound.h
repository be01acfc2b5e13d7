// The sound of an RTP stream: plays while the picture is shown. A failure of the sound never affects the picture.
#pragma once

#include "appliance/players/decoding/stream_sink.h"
#include "appliance/players/sound/sound_output.h"

#include <atomic>
#include <cstddef>
#include <gst/gst.h>
#include <string>

namespace player {

class RtpSound {
public:
    // Prepares decoding of packets with these caps on its own thread, after the picture is shown. `sink` and
    // `output` must outlive the object. Never destroyed: its thread may run until the process ends.
    RtpSound(const StreamSink& sink, SoundOutput& output, std::string caps);

    // Takes a packet; drops it while no device plays it. For one thread.
    void feed(const void* packet, std::size_t bytes);

private:
    void prepare(const StreamSink& sink);

    SoundOutput& output_;
    const std::string caps_;
    std::atomic<GstElement*> source_{nullptr}; // null: not ready
};

} // namespace player

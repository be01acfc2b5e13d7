// The sound of an RTP stream: heard while the picture is shown, never the picture's trouble.
#pragma once

#include "appliance/players/player.h"

#include <atomic>
#include <cstddef>
#include <gst/gst.h>
#include <string>

namespace player {

class RtpSound {
public:
    // Gets ready to play packets of those caps in a thread of its own, once the picture is shown. `sink` must
    // stay. Not destroyed: the process ends first.
    RtpSound(const StreamSink& sink, std::string caps);

    // Takes a packet; dropped while nothing can be heard yet. One thread.
    void feed(const void* packet, std::size_t bytes);

private:
    void prepare(const StreamSink& sink);

    const std::string caps_;
    std::atomic<GstElement*> source_{nullptr}; // null: not ready
};

} // namespace player

// Where a decoded stream goes.
#pragma once

#include <functional>
#include <gst/gst.h>
#include <string>

namespace player {

// All functions may be called on any thread.
struct StreamSink {
    std::function<void(GstSample*)> picture;       // a decoded picture; the caller keeps its reference
    std::function<void(const std::string&)> ended; // the stream is over; the reason, for the log
    std::function<bool()> showing;                 // the picture is on the screen, so sound may play
    std::function<void()> awaitShowing;            // blocks until it is
};

} // namespace player

// Where a decoded stream goes.
#pragma once

#include "appliance/screen/picture_shape.h"

#include <functional>
#include <string>

namespace player {

// All functions may be called on any thread.
struct StreamSink {
    // A decoded picture in I420 or NV12; it is valid during the call. One thread at a time.
    std::function<void(const screen::PictureView&)> picture;
    std::function<void(const std::string&)> ended; // the stream is over; the reason, for the log
    std::function<bool()> showing;                 // the picture is on the screen, so sound may play
    std::function<void()> awaitShowing;            // blocks until it is
    // This machine has no decoder for the stream's codec ("H265"); called before `ended`. May be empty.
    std::function<void(const std::string& codec)> undecodable{};
};

} // namespace player

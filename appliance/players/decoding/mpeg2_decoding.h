// Decoding of MPEG-2 streams.
#pragma once

#include "appliance/streams/mpeg2_container.h"

namespace player {

struct Mpeg2Chain {
    const char* elements; // demultiplexer and decoder, in the syntax of gst-launch
    const char* caps;     // of the bytes to feed
};

Mpeg2Chain chainOf(streams::Mpeg2Container container);

// Loads the plugins of all chains. False with a log line when one is missing.
bool loadMpeg2Plugins();

} // namespace player

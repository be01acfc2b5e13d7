// The automatic sequence: tries the kinds of stream in a fixed order of preference.
#pragma once

#include "sources/source_entry.h"

namespace detect {

// How a detection ended.
enum class Outcome {
    Verdict,     // accepted, or an error code is recorded
    Interrupted, // no verdict; the status values stay as they are at that moment
    NoSuchType,  // the configured type is out of range; error 20 is recorded
};

// RTSP (for encoders that name "mpeg4" among their image formats), SDP, MPEG-2, MJPEG. Main thread.
Outcome runAutomaticSequence(SourceEntry& entry, int statusId);

} // namespace detect

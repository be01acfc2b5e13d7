// A recorded stream for a camera that repeats it.
#pragma once

#include <string>

namespace bench {

// Four seconds of H.264 with start codes: 640x480, 25 pictures a second that change everywhere, a key picture a second, at
// a constant bit rate in kilobits per second. Uses files in `folder`. "": ffmpeg can't make it here; it has said why.
std::string recordedStream(int bitrate, const std::string& folder);

} // namespace bench

// The description (SDP) of a camera's stream, as players and supervisors get it.
#pragma once

#include "appliance/gateway/cameras/stream_info.h"

#include <string>

namespace gateway {

inline constexpr const char* videoTrack = "trackID=1"; // the name that detections expect
inline constexpr const char* soundTrack = "trackID=2";

// `info` has a video track.
std::string describe(const StreamInfo& info, const std::string& name);

} // namespace gateway

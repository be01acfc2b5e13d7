// Which of the streams that a camera describes the players can decode.
#pragma once

#include "appliance/gateway/cameras/stream_info.h"
#include "appliance/streams/stream_description.h"

#include <string>

namespace gateway {

// By the encoding name of a description ("H264", "PCMU"). Video that is only encodable is decoded and encoded anew.
bool isPlayableVideo(const std::string& encodingName);
bool isEncodableVideo(const std::string& encodingName);
bool isPlayableSound(const std::string& encodingName);

// What the gateway needs to hand a described stream on.
TrackInfo trackOf(const streams::DescribedStream& stream);

} // namespace gateway

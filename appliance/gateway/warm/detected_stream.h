// Which stream a player of a source will ask for: from the source's section and from what the last detection found.
#pragma once

#include "appliance/streams/stream_address.h"

#include <libcommon/params.h>

#include <optional>
#include <string>

namespace gateway {

// What the status store says about a source.
struct DetectedValues {
    std::string errorCode;
    std::string type;        // "VideoSourceType"
    std::string connectMode; // "ConnectMode"
    std::string apiVersion;
    std::string trace; // "DetectionTrace"; another source with the same input may have it
};

struct DetectedStream {
    streams::StreamAddress address;
    std::string user; // "": no credentials
    std::string password;
    bool operator==(const DetectedStream&) const = default;
};

// The source's key: sources with equal keys are the same input of the same encoder and share a detection.
std::string inputOf(const SourceParams& section);

// Nothing when the source was not detected, or not in order, or when what was found does not say where the stream is.
std::optional<DetectedStream> detectedStream(const SourceParams& section, const DetectedValues& values);

} // namespace gateway

// An encoder's description (SDP) of its streams.
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace streams {

struct DescribedStream {
    std::string caps;         // of its RTP packets, for GStreamer
    std::string encodingName; // "H264", ...
    std::string control;      // the absolute URL for its SETUP
    // As the description has them, for handing the stream on:
    int payloadType = 0;
    int clockRate = 0;  // of its timestamps, in Hz
    std::string rtpmap; // "96 H264/90000"; "" for a static payload type without one
    std::string fmtp;   // "96 packetization-mode=1"; "": none
};

struct StreamDescription {
    std::optional<DescribedStream> video; // the first usable one
    std::optional<DescribedStream> sound; // the first usable one
    std::string control;                  // the absolute URL for PLAY and TEARDOWN
};

// Tells whether a stream with that encoding name can be used.
using Usable = std::function<bool(const std::string& encodingName)>;

// Parses a description that was fetched from the URL `base`. Without a usable video stream there is no result, and
// `reason` says why.
std::optional<StreamDescription> readDescription(const std::string& text, const std::string& base,
                                                 const Usable& video, const Usable& sound,
                                                 std::string& reason);

// Resolves a control attribute: an absolute URL is kept, "*" and "" mean the description's own URL.
std::string resolveControl(const std::string& base, const std::string& control);

} // namespace streams

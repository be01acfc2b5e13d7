// Decoding of RTP streams with GStreamer, by the "encoding-name" of their caps: "H264", "MP4V-ES", "PCMU", ...
#pragma once

#include <string>

namespace player {

struct RtpChain {
    std::string
        elements; // depayloader and decoder in the syntax of gst-launch; "": this encoding can't be decoded
    std::string plugins; // separated by blanks, without those that all chains need
};

RtpChain videoChainOf(const std::string& encodingName);
RtpChain soundChainOf(const std::string& encodingName);

// Loads the plugins of a chain and those that all chains need. False with a log line when one is missing.
bool loadRtpPlugins(const RtpChain& chain);

// The element that puts packets in order and waits a moment for late ones, in the syntax of gst-launch.
extern const char* const reordering;

} // namespace player

// Decoding of RTP streams, by the "encoding-name" of their caps: "H264", "MP4V-ES", "PCMU", ...
#pragma once

#include <string>

namespace player {

struct RtpChain {
    // In the syntax of gst-launch: depayloader and decoder, or, with a codec, depayloader and parser; "": this encoding
    // can't be decoded.
    std::string elements;
    std::string plugins; // separated by blanks, without those that all chains need
    std::string
        codec; // the codec of libavcodec that decodes what the elements return; "": they decode it themselves
};

RtpChain videoChainOf(const std::string& encodingName);
RtpChain soundChainOf(const std::string& encodingName);

// Loads the plugins of a chain and those that all chains need. False with a log line when one is missing.
bool loadRtpPlugins(const RtpChain& chain);

// The element that puts packets in order and waits a moment for late ones, in the syntax of gst-launch.
extern const char* const reordering;

} // namespace player

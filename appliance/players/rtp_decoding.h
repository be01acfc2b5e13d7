// What an RTP stream is decoded with.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace player {

struct RtpChain {
    std::string elements; // depayloader and decoder, as for gst-launch; "" for a stream that can't be decoded
    std::string
        plugins; // what it takes besides "app", "coreelements", "rtp" and "rtpmanager", separated by blanks
};

// Video and sound by the "encoding-name" of their caps: "H264", "MP4V-ES", "PCMU", ...
RtpChain videoChainOf(const std::string& encodingName);
RtpChain soundChainOf(const std::string& encodingName);

// Loads the plugins of a chain and the common ones. False with a log line when one is missing.
bool loadRtpPlugins(const RtpChain& chain);

// The caps of a stream of which only a packet is known: its payload type tells, or, where it is one of those
// that mean what a description says, its content. "" for a packet that is none, or of nothing that is known.
std::string capsOfPacket(std::string_view packet);

// The caps of a payload type that means the same everywhere; "" for others.
std::string capsOfPayloadType(int type);

// The encoding name in such caps.
std::string encodingNameIn(const std::string& caps);

// Puts packets into their order, waiting for late ones; as for gst-launch.
extern const char* const reordering;

} // namespace player

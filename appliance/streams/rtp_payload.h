// The content of an RTP stream, as GStreamer caps ("application/x-rtp,media=video,..."). Needs no GStreamer.
#pragma once

#include <string>
#include <string_view>

namespace streams {

// The caps of a stream without a description, from one of its packets: a static payload type defines the encoding;
// for a dynamic one the payload is examined. "" when the bytes are not an RTP packet or the encoding is unknown.
std::string capsOfPacket(std::string_view packet);

// The caps of a static payload type (RFC 3551); "" for all others.
std::string capsOfPayloadType(int type);

// The encoding name in such caps: "H264", "MP4V-ES", "PCMU"; "" when there is none.
std::string encodingNameIn(const std::string& caps);

// A field for such caps, with the comma before it: ",config=(string)0001". Other characters than those of numbers and
// words are quoted.
std::string capsField(std::string_view name, std::string_view text);

} // namespace streams

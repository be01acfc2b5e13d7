// What camera-input reads from web servers. Everything else over HTTP is Motion JPEG, which the gateway reads itself. The
// end of a URL says it; where it does not, the server's Content-Type does, and then the first bytes. For any thread.
#pragma once

#include <string_view>

namespace input {

enum class WebForm {
    none,     // not camera-input's
    session,  // an SDP file that announces RTP packets
    playlist, // HLS
    file,     // a video file, or a stream in a file's format
};

// By the end of the URL's path, or of its query: ".sdp", ".m3u8", ".mp4". `target`: path and query, or a whole URL.
WebForm webFormOf(std::string_view target);

// By a server's Content-Type, with or without parameters: "video/mp4; codecs=avc1".
WebForm webFormOfType(std::string_view contentType);

// By the first bytes of what a server sends. Fewer than 189 are not enough for each form.
WebForm webFormOfBytes(std::string_view first);

} // namespace input

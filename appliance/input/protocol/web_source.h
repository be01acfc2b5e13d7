// What camera-input reads from web servers, by the URL alone: everything else over HTTP is Motion JPEG, which the gateway
// reads itself. For any thread.
#pragma once

#include <string>
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

// The ending for a server's Content-Type, ".mp4" for "video/mp4"; "" if camera-input does not read that type.
std::string_view webEndingOf(std::string_view contentType);

} // namespace input

// Where an encoder has its streams.
#pragma once

#include <string>

namespace streams {

inline constexpr const char* picturesPath = "/vexo-cgi/mjpg/video.cgi"; // Motion JPEG
inline constexpr const char* mpeg2Path = "/vexo-cgi/mpeg2/video.cgi";

// The target of an HTTP request: a path with the stream options of a player's command line. The supervisor writes them in
// several forms ("?", "?&compression=30", "camera=1&resolution=640x480"). Each gives a valid request.
std::string requestTarget(const std::string& path, const std::string& streamOptions);

// The path of an input over RTSP; 0 is the quad view.
std::string rtspPath(int input);

} // namespace streams

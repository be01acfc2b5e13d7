// The addresses under which other programs play an encoder's streams.
#pragma once

#include <string>
#include <vector>

namespace bench {

// "mjpeg", "mpeg2", "sdp", "rtsp-unicast", "rtsp-multicast", "rtsp-tcp", "rtsp-http".
const std::vector<std::string>& kindsOfStream();

// The stream of that kind on an encoder with the usual ports.
std::string urlOf(const std::string& kind, const std::string& host);

// The parts of a pipeline that fetches and decodes such a stream, as words: raw pictures come out at its end. "": there
// is none. `codec` is that of RTSP: "h264" or "mpeg4".
std::string pipelineOf(const std::string& kind, const std::string& codec, const std::string& host);

// The name of an RTSP kind's transport as ffmpeg's programs know it; "" for the other kinds.
std::string transportOf(const std::string& kind);

// Words between blanks.
std::vector<std::string> wordsOf(const std::string& text);

} // namespace bench

#include "appliance/players/programs/stream_request.h"

#include <cstdio>

namespace player {
namespace {

constexpr int defaultAnswerMs = 10'000;

// Escapes the characters that a request line can't contain. Escapes that are already there stay.
std::string escaped(const std::string& text) {
    std::string out;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte > 0x20 && byte < 0x7f && c != '"' && c != '<' && c != '>' && c != '#') {
            out += c;
            continue;
        }
        char code[4];
        std::snprintf(code, sizeof code, "%%%02X", byte);
        out += code;
    }
    return out;
}

} // namespace

std::string requestTarget(const std::string& cgi, const std::string& streamOptions) {
    const std::size_t start = streamOptions.find_first_not_of("?&");
    if (start == std::string::npos)
        return cgi;
    return cgi + "?" + escaped(streamOptions.substr(start));
}

streams::HttpSource httpSourceOf(const PlayerOptions& options, const std::string& target) {
    streams::HttpSource source;
    source.host = options.host;
    source.port = options.port;
    source.https = options.https;
    source.user = options.user;
    source.password = options.password;
    source.target = target;
    source.connectMs = options.patienceMs;
    return source;
}

streams::RtspSource rtspSourceOf(const PlayerOptions& options) {
    streams::RtspSource source;
    source.host = options.host;
    source.port = options.port;
    source.path = options.sourceNumber == 0 ? "/mpeg4/quad/media.orv"
                                            : "/mpeg4/" + std::to_string(options.sourceNumber) + "/media.orv";
    source.transport = options.transport;
    source.tls = options.https;
    source.user = options.user;
    source.password = options.password;
    source.udpPort = options.udpPort;
    source.answerMs = options.patienceMs > 0 ? options.patienceMs : defaultAnswerMs;
    return source;
}

} // namespace player

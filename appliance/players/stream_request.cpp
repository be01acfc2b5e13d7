#include "appliance/players/stream_request.h"

#include <cstdio>

namespace player {
namespace {

// What can't stand in a request line is escaped; what is escaped already stays.
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

HttpSource requestOf(const PlayerOptions& options, const std::string& target) {
    HttpSource source;
    source.host = options.host;
    source.port = options.port;
    source.https = options.https;
    source.user = options.user;
    source.password = options.password;
    source.target = target;
    source.connectMs = options.patienceMs;
    return source;
}

} // namespace player

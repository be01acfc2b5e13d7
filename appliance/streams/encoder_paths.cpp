#include "appliance/streams/encoder_paths.h"

#include <cstdio>

namespace streams {
namespace {

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

std::string rtspPath(int input) {
    return input == 0 ? "/mpeg4/quad/media.orv" : "/mpeg4/" + std::to_string(input) + "/media.orv";
}

} // namespace streams

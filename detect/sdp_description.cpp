#include "detect/sdp_description.h"

#include "detect/decimal.h"

#include <algorithm>

namespace detect {
namespace {

enum class Section { None, Video, Audio };

class Parser {
public:
    void readLine(std::string_view line) {
        constexpr std::string_view connection = "c=IN IP4 ";
        if (line.starts_with("m="))
            readMedia(line);
        else if (line.starts_with(connection))
            readConnection(line.substr(connection.size()));
    }

    SdpDescription result() && { return std::move(found_); }

private:
    void readMedia(std::string_view line) {
        const std::string_view kind = line.substr(2, 5);
        // kept: by position, after "m=", five letters and one blank, whatever these characters are
        const std::string port(line.substr(std::min<std::size_t>(8, line.size())));
        section_ = Section::None;
        if (kind == "video") {
            section_ = Section::Video;
            found_.videoPort = decimalPort(port.c_str());
        } else if (kind == "audio") {
            section_ = Section::Audio;
            found_.hasAudio = true;
            found_.audioPort = decimalPort(port.c_str());
        }
    }

    // The address ends at a blank or before the "/" of a TTL. A connection line above all sections is ignored.
    void readConnection(std::string_view rest) {
        const std::string_view address = rest.substr(0, rest.find_first_of(" /"));
        switch (section_) {
        case Section::None:
            break;
        case Section::Video:
            found_.videoAddress = address;
            if (address.empty())
                found_.videoPort = 0;
            break;
        case Section::Audio:
            found_.audioAddress = address;
            if (address.empty()) {
                found_.audioPort = 0;
                found_.hasAudio = false;
            }
            break;
        }
    }

    SdpDescription found_;
    Section section_ = Section::None;
};

} // namespace

SdpDescription parseSdp(std::string_view text) {
    constexpr std::string_view lineEnds = "\n\r";
    text = text.substr(0, text.find('\0'));
    Parser parser;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find_first_of(lineEnds), text.size());
        parser.readLine(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return std::move(parser).result();
}

} // namespace detect

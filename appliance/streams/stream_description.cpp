#include "appliance/streams/stream_description.h"

#include "appliance/streams/rtp_payload.h"
#include "appliance/streams/rtsp_message.h"

#include <algorithm>
#include <map>
#include <string_view>
#include <utility>
#include <vector>

namespace streams {
namespace {

constexpr std::size_t npos = std::string_view::npos;
constexpr int largestPort = 65535;
constexpr std::size_t mostMedias = 64;
constexpr std::size_t mostAttributes = 256; // of one stream

// One "m=" line and its attributes.
struct Media {
    std::string kind; // "video"
    int port = 0;
    std::string format;                                          // the first payload type; "": none
    std::vector<std::pair<std::string, std::string>> attributes; // "rtpmap" and its value, in their order

    // The first one with that name; null: none.
    const std::string* find(std::string_view name) const {
        for (const auto& [key, value] : attributes)
            if (key == name)
                return &value;
        return nullptr;
    }
};

struct Description {
    Media session; // the attributes before the first "m=" line
    std::vector<Media> medias;
};

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t\r");
    return first == npos ? std::string_view{}
                         : text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

// Cuts the text up to the first one of `ends` from `text`.
std::string_view cutUntil(std::string_view& text, const char* ends) {
    const std::size_t end = std::min(text.find_first_of(ends), text.size());
    const std::string_view piece = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return piece;
}

// "video 0 RTP/AVP 96 97"
Media readMedia(std::string_view line) {
    Media media;
    media.kind = cutUntil(line, " ");
    media.port = numberAt(cutUntil(line, " "));
    cutUntil(line, " "); // the protocol
    media.format = trimmed(cutUntil(line, " "));
    return media;
}

void readAttribute(std::string_view line, Media& media) {
    if (media.attributes.size() >= mostAttributes)
        return;
    const std::string_view name = cutUntil(line, ":");
    media.attributes.emplace_back(name, line);
}

Description readLines(std::string_view text) {
    Description description;
    while (!text.empty()) {
        const std::string_view line = trimmed(cutUntil(text, "\n"));
        if (line.starts_with("m=") && description.medias.size() < mostMedias)
            description.medias.push_back(readMedia(line.substr(2)));
        else if (line.starts_with("a="))
            readAttribute(line.substr(2),
                          description.medias.empty() ? description.session : description.medias.back());
    }
    return description;
}

// The attribute ("rtpmap", "fmtp") that begins with this payload type.
std::string attributeOf(const Media& media, std::string_view name) {
    for (const auto& [key, value] : media.attributes)
        if (key == name && value.starts_with(media.format + " "))
            return value;
    return "";
}

std::string lowered(std::string_view text) {
    std::string result(text);
    for (char& c : result)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 'a' - 'A') : c;
    return result;
}

std::string raised(std::string_view text) {
    std::string result(text);
    for (char& c : result)
        c = c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c;
    return result;
}

bool isFieldName(std::string_view name) {
    return !name.empty() && name.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-_") == npos;
}

// The fields of "96 packetization-mode=1; profile-level-id=42C01E"; the first one of a name counts.
std::string fieldsOf(std::string_view fmtp) {
    std::map<std::string, std::string> fields;
    cutUntil(fmtp, " "); // the payload type
    while (!fmtp.empty()) {
        std::string_view one = trimmed(cutUntil(fmtp, ";"));
        const std::string name = lowered(trimmed(cutUntil(one, "=")));
        if (isFieldName(name))
            fields.emplace(name, trimmed(one));
    }
    std::string caps;
    for (const auto& [name, value] : fields)
        caps += capsField(name, value);
    return caps;
}

// What "96 H264/90000" says. Static payload types need no such attribute.
void readRtpmap(const Media& media, DescribedStream& stream) {
    std::string_view rest = stream.rtpmap;
    cutUntil(rest, " ");
    rest = trimmed(rest);
    stream.encodingName = raised(trimmed(cutUntil(rest, "/")));
    if (stream.encodingName.empty()) {
        stream.caps = capsOfPayloadType(stream.payloadType);
        stream.encodingName = encodingNameIn(stream.caps);
        stream.clockRate = stream.caps.find("clock-rate=90000") != std::string::npos ? 90000 : 8000;
        return;
    }
    const int rate = numberAt(cutUntil(rest, "/"));
    stream.clockRate = rate > 0 ? rate : media.kind == "audio" ? 8000 : 90000;
    stream.caps = "application/x-rtp,media=(string)" + media.kind + ",payload=(int)" +
                  std::to_string(stream.payloadType) + ",clock-rate=(int)" +
                  std::to_string(stream.clockRate) + capsField("encoding-name", stream.encodingName);
    if (!rest.empty())
        stream.caps += capsField("encoding-params", rest);
    stream.caps += fieldsOf(stream.fmtp);
}

std::optional<DescribedStream> streamOf(const Media& media, const std::string& base) {
    DescribedStream stream;
    stream.payloadType = numberAt(media.format);
    if (stream.payloadType < 0 || media.port < 0 || media.port > largestPort)
        return std::nullopt;
    stream.rtpmap = attributeOf(media, "rtpmap");
    stream.fmtp = attributeOf(media, "fmtp");
    readRtpmap(media, stream);
    if (stream.encodingName.empty())
        return std::nullopt;
    const std::string* control = media.find("control");
    stream.control = resolveControl(base, control == nullptr ? "*" : *control);
    return stream;
}

} // namespace

std::string resolveControl(const std::string& base, const std::string& control) {
    if (control.empty() || control == "*")
        return base;
    if (control.find("://") != std::string::npos)
        return control;
    if (control.front() == '/') { // a path on the base's host
        const std::size_t host = base.find("://");
        const std::size_t path = host == std::string::npos ? std::string::npos : base.find('/', host + 3);
        return base.substr(0, path) + control;
    }
    return base + (base.ends_with('/') ? "" : "/") + control;
}

std::optional<StreamDescription> readDescription(const std::string& text, const std::string& base,
                                                 const Usable& video, const Usable& sound,
                                                 std::string& reason) {
    if (text.empty()) {
        reason = "the description is empty";
        return std::nullopt;
    }
    const Description description = readLines(text);
    const std::string* control = description.session.find("control");
    StreamDescription content;
    content.control = resolveControl(base, control == nullptr ? "*" : *control);
    reason = "the description has no video";
    for (const Media& media : description.medias) {
        const std::optional<DescribedStream> stream = streamOf(media, base);
        if (!stream)
            continue;
        if (media.kind == "video" && !content.video) {
            if (video(stream->encodingName))
                content.video = stream;
            else
                reason = "video in the encoding \"" + stream->encodingName + "\" can't be decoded";
        }
        if (media.kind == "audio" && !content.sound && sound(stream->encodingName))
            content.sound = stream;
    }
    return content.video ? std::optional(content) : std::nullopt;
}

} // namespace streams

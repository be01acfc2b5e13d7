#include "appliance/gateway/warm/detected_stream.h"

#include "appliance/streams/encoder_paths.h"

#include <libcommon/status.h>

#include <charconv>
#include <cstdlib>

namespace gateway {
namespace {

// Indices into videoSourceTypeString and connectModeString.
enum Type { mjpeg = 1, mpeg2 = 2, group = 3, rtspUnicast = 4, rtspMulticast = 5, rtspTcp = 6, rtspHttp = 7 };
enum Mode { httpAuth = 2, https = 3 };

std::string valueOf(const SourceParams& section, const char* key) {
    const auto found = section.find(key);
    return found == section.end() ? "" : found->second;
}

int inputNumber(const SourceParams& section) {
    return std::atoi(valueOf(section, "VideoSourceNumber").c_str());
}

struct Place {
    std::string host;
    std::uint16_t port = 0;
};

// The end of a detection's trace: `accepted: kind 1 (mjpeg), connect mode 1 (http), "192.168.1.20" port 80`.
std::optional<Place> placeIn(const std::string& trace, int type) {
    const std::size_t accepted = trace.rfind(" accepted: kind " + std::to_string(type) + " ");
    if (accepted == std::string::npos)
        return std::nullopt;
    const std::size_t begin = trace.find('"', accepted);
    const std::size_t end = begin == std::string::npos ? begin : trace.find("\" port ", begin + 1);
    if (end == std::string::npos)
        return std::nullopt;
    Place place{trace.substr(begin + 1, end - begin - 1), 0};
    const std::size_t number = end + std::string_view("\" port ").size();
    std::from_chars(trace.data() + number, trace.data() + trace.size(), place.port);
    // A host with escapes, or one that is too long for the trace, can't be read back.
    const bool whole = !place.host.empty() && place.host.find('\\') == std::string::npos &&
                       place.host.find('"') == std::string::npos && !place.host.ends_with("...");
    return whole && place.port != 0 ? std::optional(place) : std::nullopt;
}

// As the supervisor's command line has them. kept: the first option appended to an empty query is lost.
std::string pictureOptions(const SourceParams& section, int apiVersion) {
    const int input = inputNumber(section);
    std::string options;
    if (apiVersion > 0)
        options = input != 0 ? "camera=" + std::to_string(input) : apiVersion == 1 ? "quad=1" : "camera=quad";
    for (const auto& [key, option] :
         {std::pair{"Resolution", "&resolution="}, {"Compression", "&compression="}}) {
        const std::string value = valueOf(section, key);
        if (value == "default")
            continue;
        options += options.empty() ? "?" : option + value;
    }
    return options;
}

streams::RtspTransport transportOf(int type) {
    switch (type) {
    case rtspMulticast:
        return streams::RtspTransport::multicast;
    case rtspTcp:
        return streams::RtspTransport::tcp;
    case rtspHttp:
        return streams::RtspTransport::http;
    default:
        return streams::RtspTransport::unicast;
    }
}

streams::StreamAddress addressAt(const Place& place, int type, bool secure, const SourceParams& section,
                                 int apiVersion) {
    streams::HttpSource http;
    http.host = place.host;
    http.port = place.port;
    switch (type) {
    case mjpeg:
        http.https = secure;
        http.target = streams::requestTarget(streams::picturesPath, pictureOptions(section, apiVersion));
        return addressOf(http, streams::StreamAddress::Kind::mjpeg);
    case mpeg2:
        http.target = streams::mpeg2Path;
        return addressOf(http, streams::StreamAddress::Kind::mpeg2);
    case group:
        return streams::addressOfGroup(place.host, place.port);
    default:
        break;
    }
    streams::RtspSource rtsp;
    rtsp.host = place.host;
    rtsp.port = place.port;
    rtsp.path = streams::rtspPath(inputNumber(section));
    rtsp.transport = transportOf(type);
    rtsp.tls = secure;
    return addressOf(rtsp);
}

} // namespace

std::string inputOf(const SourceParams& section) {
    return valueOf(section, "Address") + "#" + valueOf(section, "VideoSourceNumber") + "#" +
           valueOf(section, "VideoSourceType");
}

std::optional<DetectedStream> detectedStream(const SourceParams& section, const DetectedValues& values) {
    if (values.errorCode != "0" || values.type.empty() || values.connectMode.empty())
        return std::nullopt;
    const int type = getNumberByString(values.type.c_str(), videoSourceTypeString);
    const int mode = getNumberByString(values.connectMode.c_str(), connectModeString);
    if (type < mjpeg || type > rtspHttp)
        return std::nullopt;
    const auto place = placeIn(values.trace, type);
    if (!place)
        return std::nullopt;
    DetectedStream stream;
    stream.address = addressAt(*place, type, mode == https, section, std::atoi(values.apiVersion.c_str()));
    const bool asks = mode == httpAuth || mode == https;
    if (asks && type != group) {
        stream.user = valueOf(section, "UserName");
        stream.password = valueOf(section, "Password");
    }
    return stream;
}

} // namespace gateway

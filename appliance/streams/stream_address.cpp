#include "appliance/streams/stream_address.h"

namespace streams {
namespace {

const char* schemeOf(const StreamAddress& address) {
    switch (address.kind) {
    case StreamAddress::Kind::mjpeg:
        return address.tls ? "mjpeg-https" : "mjpeg-http";
    case StreamAddress::Kind::mpeg2:
        return address.tls ? "mpeg2-https" : "mpeg2-http";
    case StreamAddress::Kind::group:
        return "group";
    case StreamAddress::Kind::rtsp:
        break;
    }
    switch (address.transport) {
    case RtspTransport::unicast:
        return "rtsp-unicast";
    case RtspTransport::multicast:
        return "rtsp-multicast";
    case RtspTransport::tcp:
        return "rtsp-tcp";
    case RtspTransport::http:
        break;
    }
    return address.tls ? "rtsp-https" : "rtsp-http";
}

} // namespace

std::string StreamAddress::text() const {
    std::string line = std::string(schemeOf(*this)) + "://[" + host + "]:" + std::to_string(port) + target;
    for (char& c : line)
        if (static_cast<unsigned char>(c) < 0x20)
            c = ' ';
    return line;
}

StreamAddress addressOf(const RtspSource& source) {
    return {.kind = StreamAddress::Kind::rtsp,
            .host = source.host,
            .port = source.port,
            .tls = source.tls && source.transport == RtspTransport::http,
            .target = source.path,
            .transport = source.transport};
}

StreamAddress addressOf(const HttpSource& source, StreamAddress::Kind kind) {
    return {.kind = kind,
            .host = source.host,
            .port = source.port,
            .tls = source.https,
            .target = source.target,
            .transport = RtspTransport::unicast};
}

StreamAddress addressOfGroup(const std::string& group, std::uint16_t port) {
    return {.kind = StreamAddress::Kind::group,
            .host = group,
            .port = port,
            .tls = false,
            .target = "",
            .transport = RtspTransport::unicast};
}

} // namespace streams

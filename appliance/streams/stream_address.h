// What identifies a stream: where the encoder is and how its packets come.
#pragma once

#include "appliance/streams/http_stream.h"
#include "appliance/streams/rtsp_source.h"

#include <cstdint>
#include <string>

namespace streams {

// Without user and password: those may change while the stream is the same.
struct StreamAddress {
    enum class Kind {
        mjpeg, // pictures over HTTP
        mpeg2, // MPEG-2 over HTTP
        group, // MPEG-2 in RTP packets to a group and port
        rtsp,
    };
    Kind kind = Kind::rtsp;
    std::string host; // for a group, the group
    std::uint16_t port = 0;
    bool tls = false;
    std::string target;                               // path and query; "" for a group
    RtspTransport transport = RtspTransport::unicast; // rtsp only

    // One line without line end. Streams with equal texts are the same.
    std::string text() const;
    bool operator==(const StreamAddress&) const = default;
};

StreamAddress addressOf(const RtspSource& source);
StreamAddress addressOf(const HttpSource& source, StreamAddress::Kind kind);
StreamAddress addressOfGroup(const std::string& group, std::uint16_t port);

} // namespace streams

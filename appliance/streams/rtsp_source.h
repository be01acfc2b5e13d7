// Which stream to request over RTSP, and how.
#pragma once

#include <cstdint>
#include <string>

namespace streams {

// How the packets of a stream arrive.
enum class RtspTransport {
    unicast,   // UDP datagrams to ports of this machine
    multicast, // UDP datagrams to a group that the encoder names
    tcp,       // on the RTSP connection
    http,      // on the RTSP connection, which is tunnelled through HTTP
};

struct RtspSource {
    std::string host; // name, IPv4 or IPv6 address
    std::uint16_t port = 554;
    std::string path; // "/mpeg4/1/media.orv"
    RtspTransport transport = RtspTransport::unicast;
    bool tls = false; // http only: the tunnel uses HTTPS
    std::string user; // "": no credentials
    std::string password;
    std::uint16_t udpPort = 0; // unicast only: first port of the pair for RTP and RTCP; 0: any
    int answerMs = 10'000;     // time limit for the connection and for each answer, above 0
};

} // namespace streams

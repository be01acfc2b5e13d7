// What the gateway and camera-input say to each other over the socket that camera-input has as its standard input.
//
// Every message is "$", a channel, a length of two bytes (highest first) and as many bytes, as RTSP has them between its
// messages. camera-input reads one request, then media until the gateway closes the socket. For any thread.
#pragma once

#include "appliance/input/protocol/web_source.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace input {

inline constexpr std::size_t longestMessage = 65535;

enum class ToInput {
    request = 0, // the first message
    packet = 1,  // an RTP packet of the camera, for Kind::packets
};

enum class FromInput {
    video = 0,       // an RTP packet
    sound = 1,       // an RTP packet
    description = 2, // SDP of what follows; before the first packet
    failure = 3,     // one sentence without a full stop; nothing follows
    encoded = 4,     // the codec of the video that is decoded and encoded anew; before the description
    otherForm = 5,   // as failure: what a web server sends has not the form that the request says
};

enum class Kind {
    file,    // played in a loop at its own speed
    device,  // a camera at this machine
    srt,     // a stream that the network brings
    web,     // what a web server has, in the request's form
    packets, // RTP packets in a codec that players can't decode
};

struct Request {
    Kind kind = Kind::file;
    std::string place;    // path or URL, without secrets; unused for packets
    std::string password; // of an SRT stream or a web server; "": none
    std::string codec{};  // of packets: "VP8"
    int clockRate = 90000;
    std::string user{};           // of a web server
    bool verified = true;         // the certificates of web servers are checked
    std::string authorities{};    // file (PEM) of those to trust; "": the system's
    WebForm form = WebForm::none; // of what a web server has
};

// A message with at most longestMessage bytes; more are cut off.
std::string framed(int channel, std::string_view bytes);

std::string textOf(const Request& request);
std::optional<Request> readRequest(std::string_view text); // nothing for a text that textOf() does not make

// Whether camera-input decodes a codec of RTP packets, by its encoding name in a description.
bool decodesPackets(std::string_view encodingName);

} // namespace input

// Parses what arrives on an RTSP connection: messages, and interleaved packets between them.
#pragma once

#include <libcommon/istring.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace streams {

struct RtspMessage {
    int status = 0;     // of a response; 0: a request of the server
    std::string method; // of a request; "" for a response
    std::multimap<istring, std::string> headers;
    std::string body;

    std::string header(const char* name) const;  // the first one with that name; "": none
    std::vector<std::string> challenges() const; // all of WWW-Authenticate, in their order
    int sequence() const;                        // CSeq; -1: none
};

struct RtspEvents {
    std::function<void(RtspMessage&&)> message;
    std::function<void(int channel, std::string_view packet)> packet; // valid during the call
};

// Splits what a server sends. Memory is bounded: a header has at most 16 KiB, a body 256 KiB. More is an error,
// and the reader stays in the error state. For one thread.
class RtspReader {
public:
    static constexpr std::size_t headerLimit = 16 * 1024;
    static constexpr std::size_t bodyLimit = 256 * 1024;

    explicit RtspReader(RtspEvents events);

    // False after bytes that are not RTSP.
    bool feed(const char* bytes, std::size_t count);

private:
    bool step();
    bool takePacket();
    bool takeMessage();

    RtspEvents events_;
    std::string_view waiting() const { return std::string_view(buffer_).substr(start_); }

    std::string buffer_;
    std::size_t start_ = 0; // the bytes before it are used; dropped once per feed(), not once per packet
    bool broken_ = false;
};

// The value of `name` in a parameter list ("RTP/AVP;unicast;client_port=5000-5001"); "": none.
std::string parameterIn(std::string_view list, std::string_view name);

// The number at the start of the text; -1: none.
int numberAt(std::string_view text);

} // namespace streams

// RTSP on the wire: messages and the packets between them, as they come.
#pragma once

#include <libcommon/istring.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace streams {

struct RtspMessage {
    int status = 0;     // of a response; 0: it is a request of the server's, or broken
    std::string method; // of a request; "" for a response
    std::multimap<istring, std::string> headers;
    std::string body;

    std::string header(const char* name) const; // the first of that name; "" when there is none
    int sequence() const;                       // CSeq; -1 when there is none
};

struct RtspEvents {
    std::function<void(RtspMessage&&)> message;
    std::function<void(int channel, std::string_view packet)> packet; // valid during the call
};

// Takes what a server sends apart. Memory is bounded: a header of 16 KiB, a body of 256 KiB; more is an
// error, after which nothing is read any more. No threads.
class RtspReader {
public:
    static constexpr std::size_t headerLimit = 16 * 1024;
    static constexpr std::size_t bodyLimit = 256 * 1024;

    explicit RtspReader(RtspEvents events);

    // False after something that can't be RTSP.
    bool feed(const char* bytes, std::size_t count);

private:
    bool step();
    bool takePacket();
    bool takeMessage();

    RtspEvents events_;
    std::string buffer_;
    bool broken_ = false;
};

// The value of `name` in a parameter list ("RTP/AVP;unicast;client_port=5000-5001"); "" when it is not there.
std::string parameterIn(std::string_view list, std::string_view name);

// The number at the start of the text; -1 without one.
int numberAt(std::string_view text);

} // namespace streams

// Splits what a player sends into requests. Pure: no sockets.
#pragma once

#include "appliance/serving/request_text.h"

#include <optional>
#include <string>
#include <string_view>

namespace gateway {

class RequestReader {
public:
    // False when more is waiting than a player has any reason to send.
    bool add(std::string_view bytes);

    // The next whole request. Nothing while it is incomplete, and after a mistake, which is then in `mistake`. Packets
    // between requests (reports of a player) are dropped.
    std::optional<Request> next(std::string& mistake);

    // Whether a request has begun and is not complete.
    bool isInside() const { return !received_.empty(); }

private:
    bool dropPacket();

    std::string received_;
};

} // namespace gateway

// Tells RTSP from HTTP by the first bytes of a connection, so that one port can serve both.
#pragma once

#include <optional>
#include <string_view>

enum class Protocol { Http, Rtsp };

// The protocol of a connection that begins with these bytes; nothing while they could still be either. Text that is
// not a request counts as HTTP, which has the better error replies.
std::optional<Protocol> protocolOf(std::string_view start);

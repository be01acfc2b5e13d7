// Tells RTSP from HTTP by the first bytes of a connection, so that one port can serve both.
#pragma once

#include "appliance/encoder/network/connection.h"

#include <optional>
#include <string_view>

enum class Protocol { Http, Rtsp };

// The protocol of a connection that begins with these bytes; nothing while they could still be either. Text that is
// not a request counts as HTTP, which has the better error replies.
std::optional<Protocol> protocolOf(std::string_view start);

// Waits for the first bytes of a plain connection and leaves them in place to be read. Nothing if the peer leaves
// or sends no byte within `idleTime`. A peer that then takes too long over its first line is treated as HTTP.
std::optional<Protocol> awaitProtocol(const Connection& connection, std::chrono::seconds idleTime);

// Waits for the first bytes of a connection to tell RTSP from HTTP.
#pragma once

#include "appliance/encoder/network/connection.h"
#include "appliance/serving/protocol.h"

#include <optional>

// Waits for the first bytes of a plain connection and leaves them in place to be read. Nothing if the peer leaves
// or sends no byte within `idleTime`. A peer that then takes too long over its first line is treated as HTTP.
std::optional<Protocol> awaitProtocol(const Connection& connection, std::chrono::seconds idleTime);

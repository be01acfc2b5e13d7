// Decodes a camera's RTP packets in a codec that players can't decode, and encodes the pictures anew.
#pragma once

#include "appliance/input/gateway_socket.h"
#include "appliance/input/protocol/messages.h"

namespace input {

// Takes packets from the gateway until it closes the socket. Ends with InputFailure or GatewayGone.
[[noreturn]] void encodePackets(GatewaySocket& socket, const Request& request);

} // namespace input

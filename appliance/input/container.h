// Reads the streams of a file, an SRT connection or a web server with libavformat, and sends them to the gateway.
#pragma once

#include "appliance/input/gateway_socket.h"
#include "appliance/input/protocol/messages.h"

namespace input {

// Plays a file in a loop, at its own speed. Ends with InputFailure or GatewayGone.
[[noreturn]] void playFile(const GatewaySocket& socket, const Request& request);

// Hands on a stream of the network as it comes. Ends likewise.
[[noreturn]] void receiveSrt(const GatewaySocket& socket, const Request& request);

// Plays what a URL over HTTP names: video files in a loop, everything else as it comes. Ends likewise.
[[noreturn]] void playWeb(const GatewaySocket& socket, const Request& request);

} // namespace input

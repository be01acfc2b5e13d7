// Sends the pictures of a camera at this machine: H.264 and Motion JPEG as they are, all others encoded.
#pragma once

#include "appliance/input/gateway_socket.h"
#include "appliance/input/video_device.h"

namespace input {

// Ends with InputFailure or GatewayGone.
[[noreturn]] void playDevice(const GatewaySocket& socket, VideoDevice& device);

} // namespace input

// Faults that replace an HTTP or RTSP reply.
#pragma once

#include "appliance/encoder/device/device.h"
#include "appliance/encoder/faults/faults.h"
#include "appliance/encoder/network/connection.h"

#include <optional>
#include <string>

// The active fault that replaces the reply, if any.
std::optional<Fault> answeringFault(const FaultSet& faults);

// Misbehaves until the fault is done, the client leaves, the device stops, or five minutes have passed.
// `protocol` is "HTTP/1.1" or "RTSP/1.0".
void answerWithFault(Fault fault, const Device& device, Connection& connection, const std::string& protocol);

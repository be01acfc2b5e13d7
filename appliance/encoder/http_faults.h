// Faults that take the place of an HTTP or RTSP answer.
#pragma once

#include "appliance/encoder/connection.h"
#include "appliance/encoder/device.h"
#include "appliance/encoder/faults.h"

#include <optional>
#include <string>

// The fault in force that answers instead of the encoder, if any.
std::optional<Fault> answeringFault(const FaultSet& faults);

// Does what the fault says until it is done, the client leaves, the device stops, or five minutes are over.
// `protocol` is "HTTP/1.1" or "RTSP/1.0".
void answerWithFault(Fault fault, Device& device, Connection& connection, const std::string& protocol);

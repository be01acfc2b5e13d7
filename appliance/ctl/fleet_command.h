// `decoderctl --fleet`: all decoders of a broker.
#pragma once

#include "appliance/ctl/ctl_command_line.h"

// Becomes the program decoder-fleet, which belongs to decoder-mqtt. Does not return; throws Refused when the program is not
// installed.
[[noreturn]] void becomeFleet(const Request& request);

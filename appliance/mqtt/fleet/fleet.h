// Showing and driving all decoders of a site over its broker.
#pragma once

#include "appliance/mqtt/fleet/fleet_request.h"

#include <iosfwd>

namespace mqtt {

// Does what is asked, and prints the result. Returns the exit status: 0, or 1 when a decoder that is online refused or did
// not answer. Throws Refused with the reason when nothing could be done. Takes at most about half a minute.
int runFleet(const FleetRequest& request, std::ostream& out);

} // namespace mqtt

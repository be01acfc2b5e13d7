// `decoderctl discover`: finds cameras in the local network.
#pragma once

#include "appliance/ctl/discover_request.h"
#include "appliance/discovery/discovery.h"

#include <iosfwd>
#include <string>

// What is printed, with line ends. Texts of the cameras are made printable.
std::string discoveryText(const Discovery& discovery);

// Searches, keeps the result for `decoderctl add`, and prints it to `out`, with `json` as JSON. A password is the first
// line of `in`. Throws Refused.
void discover(const DiscoverRequest& request, bool json, std::istream& in, std::ostream& out);

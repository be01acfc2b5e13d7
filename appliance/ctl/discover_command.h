// `decoderctl discover`: finds cameras in the local network.
#pragma once

#include "appliance/ctl/discover_request.h"
#include "appliance/discovery/discovery.h"
#include "appliance/discovery/found_cameras.h"

#include <iosfwd>
#include <string>

// What is printed, with line ends. Texts of the cameras are made printable.
std::string discoveryText(const Discovery& discovery);

// Searches, keeps the result for `decoderctl add`, and prints it to `out`, with `json` as JSON. Throws
// Refused, or std::runtime_error with the reason.
void discover(const DiscoverRequest& request, bool json, std::ostream& out);

// The source that `decoderctl add` adds: camera `found` of the last search, with its own name if `name` is empty, or
// `name` and `url` if `found` is 0. Throws std::runtime_error with the reason.
SourceToAdd sourceToAdd(int found, const std::string& profile, const std::string& name,
                        const std::string& url);

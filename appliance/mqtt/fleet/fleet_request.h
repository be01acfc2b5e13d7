// What `decoderctl --fleet` asks decoder-fleet for. It is handed over as JSON on standard input, because a broker's URL
// may have a password, and command lines are visible to all users.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace mqtt {

struct FleetRequest {
    std::string
        broker; // a URL with credentials and the site as its path; "own": as in this decoder's configuration
    std::string caFile;                // "": the system's authorities
    std::string word;                  // "status", "select", "alarm"
    std::string source;                // select, alarm
    std::string text;                  // alarm
    std::string group;                 // "": all
    std::vector<std::string> decoders; // names; empty: all
    bool json = false;
};

std::string fleetRequestText(const FleetRequest& request);
// Throws Refused when the text is no request.
FleetRequest readFleetRequest(std::string_view text);

} // namespace mqtt

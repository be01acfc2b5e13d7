// The requests that HTTP players make.
#pragma once

#include "appliance/players/http_stream.h"
#include "appliance/players/player_options.h"

#include <string>

namespace player {

// The target of a request for a CGI with stream options as the supervisor hands them on. It joins them in
// more than one form ("?", "?&compression=30", "camera=1&resolution=640x480"); each gives a valid request.
std::string requestTarget(const std::string& cgi, const std::string& streamOptions);

// The request of that target to the player's encoder.
HttpSource requestOf(const PlayerOptions& options, const std::string& target);

} // namespace player

// What a player requests from its encoder.
#pragma once

#include "appliance/players/showing/player_options.h"
#include "appliance/streams/http_stream.h"
#include "appliance/streams/rtsp_source.h"

#include <string>

namespace player {

// The target of an HTTP request: a CGI with the stream options of the command line. The supervisor writes
// them in several forms ("?", "?&compression=30", "camera=1&resolution=640x480"). Each gives a valid request.
std::string requestTarget(const std::string& cgi, const std::string& streamOptions);

// The HTTP request for that target.
streams::HttpSource httpSourceOf(const PlayerOptions& options, const std::string& target);

// The RTSP stream of an mpeg4player.
streams::RtspSource rtspSourceOf(const PlayerOptions& options);

} // namespace player

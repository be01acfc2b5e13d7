// What a player requests from its encoder.
#pragma once

#include "appliance/players/showing/player_options.h"
#include "appliance/streams/encoder_paths.h"
#include "appliance/streams/http_stream.h"
#include "appliance/streams/rtsp_source.h"

#include <string>

namespace player {

using streams::requestTarget;

// The HTTP request for that target.
streams::HttpSource httpSourceOf(const PlayerOptions& options, const std::string& target);

// The RTSP stream of an mpeg4player.
streams::RtspSource rtspSourceOf(const PlayerOptions& options);

} // namespace player

// The paths of live video: "/mpeg4/N/media.orv" for input N and "/mpeg4/quad/media.orv" for the quad view. RTSP and
// RTSP over HTTP use the same ones.
#pragma once

#include "appliance/serving/request_text.h"

#include <optional>
#include <string>
#include <string_view>

std::string mediaPathOf(int channel);

// The channel of a media path, with or without a track name after it; 0 is the quad view. Nothing for other paths.
std::optional<int> mediaChannelOf(std::string_view path);

// Whether a request opens one half of an RTSP tunnel through HTTP: a media path and a session cookie.
bool isTunnelRequest(const Request& request);

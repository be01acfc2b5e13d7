// The channel that a query asks for.
#pragma once

#include "appliance/encoder/http/http_session.h"

// Reads camera=N, camera=quad or quad=1. Without them, or with an empty camera=, it is the first input. Null if the
// channel does not exist.
Channel* wantedChannel(const HttpSession& session);

// The 404 reply for a query without a channel.
void replyNoSuchCamera(HttpSession& session);

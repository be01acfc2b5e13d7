// The media paths over HTTP: an RTSP tunnel for a client that brings a session cookie, the stream's
// description for everybody else (that a media path answers a plain GET is how a decoder finds out that RTSP
// works over HTTP).
#pragma once

#include "appliance/encoder/http_session.h"

// Whether a request is one half of a tunnel. Its credentials are asked for within the tunnel: clients cannot
// give them outside.
bool isTunnelRequest(const Request& request);

// Serves a request for a media path; false, with nothing sent, for every other one.
bool serveMediaPath(HttpSession& session);

// The media paths over HTTP. A request with a session cookie opens one half of an RTSP tunnel. Any other request gets
// the stream's description: a decoder asks for it to find out whether RTSP works over HTTP.
#pragma once

#include "appliance/encoder/http/http_session.h"
#include "appliance/encoder/rtsp/rtsp_server.h"

// Serves a request for a media path; false, with nothing sent, for every other request.
bool serveMediaPath(HttpSession& session, RtspServer& rtsp);

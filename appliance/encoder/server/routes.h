// Which page an HTTP request gets.
#pragma once

#include "appliance/encoder/http/http_session.h"
#include "appliance/encoder/onvif/onvif_facts.h"
#include "appliance/encoder/rtsp/rtsp_server.h"

// Replies to the session's request. For a stream, returns when the stream ends. `rtsp` may be null: without RTSP.
// `onvif` may be null: no ONVIF device.
void serveRequest(HttpSession& session, RtspServer* rtsp, const OnvifFacts* onvif);

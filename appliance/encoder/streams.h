// The streams that the encoder sends over HTTP.
#pragma once

#include "appliance/encoder/http_session.h"

inline constexpr std::string_view viewParameterPath = "/vexo-cgi/view/param.cgi";
inline constexpr std::string_view adminParameterPath = "/vexo-cgi/admin/param.cgi";
inline constexpr std::string_view adminGetParameterPath = "/vexo-cgi/admin/getparam.cgi";

// Serves the session's request if it names a stream, a still picture or a stream's description that this
// encoder offers, and returns when the stream is over. False, with nothing sent, for every other request.
bool serveStream(HttpSession& session);

// The channel that a query names by camera=N, camera=quad or quad=1 (default: the first input); null when
// there is none of that number.
Channel* wantedChannel(const HttpSession& session);

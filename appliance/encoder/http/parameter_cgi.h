// The CGIs that a decoder asks about the encoder: three for parameters, one that turns cameras to presets.
#pragma once

#include "appliance/encoder/http/http_session.h"

// Replies if the request is for one of these CGIs; false, with nothing sent, for every other request.
bool serveCgi(HttpSession& session, const FaultSet& faults);

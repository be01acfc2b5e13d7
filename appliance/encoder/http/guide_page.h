// The SDP guide: the description of an input's multicast.
#pragma once

#include "appliance/encoder/http/http_session.h"

void serveGuide(HttpSession& session);

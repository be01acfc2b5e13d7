// The encoder's ONVIF services on its HTTP port: SOAP requests by POST.
#pragma once

#include "appliance/encoder/http/http_session.h"
#include "appliance/encoder/onvif/onvif_facts.h"

// Whether the request is for one of the services.
bool isOnvifPath(std::string_view path);

// Replies. It checks the credentials itself: a user name token in the message, or HTTP's.
void serveOnvif(HttpSession& session, const OnvifFacts& facts);

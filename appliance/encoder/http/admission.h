// Faults and credentials: whether an HTTP request gets its page.
#pragma once

#include "appliance/encoder/http/http_session.h"

// False when a fault or a refusal has already been the reply.
bool isAdmitted(HttpSession& session, const FaultSet& faults);

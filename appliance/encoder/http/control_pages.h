// The pages for tests and users, which no fault affects: /faults reads and switches faults, /requests lists the
// requests of clients. They answer only requests from this machine.
#pragma once

#include "appliance/encoder/http/http_session.h"

// Replies if the request is for one of these pages; false, with nothing sent, for every other request.
bool serveControlPage(HttpSession& session);

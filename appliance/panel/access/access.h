// Who may do what: log-ins, sessions and tokens of the panel.
//
// Accounts and tokens are files that decoderctl writes; a change is seen at once, and ends the sessions of accounts that
// changed. Passwords are checked in a worker's thread of its own, so that neither the main loop nor commands wait for
// them. Main loop's thread only.
#pragma once

#include "appliance/panel/access/sessions.h"
#include "appliance/panel/web/router.h"
#include "appliance/panel/web/visitor.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace panel {

struct AccessOptions {
    SessionLimits sessions;
    unsigned triesAMinute = 10; // log-ins from one address
};

class Access {
public:
    // `sessionEnded` is called with the key of each session that ends.
    Access(const AccessOptions& options, std::function<void(std::string_view)> sessionEnded);
    ~Access();
    Access(const Access&) = delete;
    Access& operator=(const Access&) = delete;

    // Adds /login, /logout, /open/{secret} and /api/v1/session.
    void addRoutes(Router& router);

    // Before the first request: the port and TLS name the cookie.
    void setPlace(std::uint16_t port, bool secure);

    // For the server.
    Visitor identify(const Credentials& credentials);

    // What /api/v1/session and the event "session" tell: {"user","role","expires"}.
    std::string sessionJson(std::string_view sessionKey) const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace panel

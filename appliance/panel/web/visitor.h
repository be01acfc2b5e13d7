// Who sent a request, as far as the server needs to know.
#pragma once

#include "appliance/panel/web/request.h"
#include "appliance/panel/web/router.h"

#include <functional>
#include <string>

namespace panel {

struct Visitor {
    Role role = Role::None;
    Purpose purpose = Purpose::None; // of a token without a role
    std::string account;
    std::string session; // "" of a token and without log-in
    std::string csrf;    // of the session
    bool token = false;
};

// What identifies a visitor. Both are as the client sent them.
struct Credentials {
    std::string cookies; // the header Cookie
    std::string token;   // of Authorization: Bearer, X-Token, or ?token= where the route allows it
};

// Finds out who it is; never blocks.
using Identify = std::function<Visitor(const Credentials&)>;

} // namespace panel

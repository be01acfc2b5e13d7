// From a request to its handler: all checks that come before.
#pragma once

#include "appliance/panel/web/router.h"
#include "appliance/panel/web/visitor.h"

#include <optional>
#include <string>
#include <vector>

namespace panel {

struct Place {
    std::string localAddress; // numeric, of this end of the connection
    bool secure = false;
    const std::vector<std::string>* hosts = nullptr; // known names
};

struct Dispatched {
    const Router::Route* route = nullptr; // null: answer with `refusal`
    Visitor visitor;
    Response refusal;
};

// Checks the request and fills in what its route and visitor tell: parts, role, account. `encodedPath` is the path as it
// was sent.
Dispatched dispatch(Request& request, const std::string& encodedPath, const Place& place,
                    const Router& router, const Identify& identify);

} // namespace panel

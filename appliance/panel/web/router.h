// Which handler answers which address.
//
// A pattern is a path such as "/api/v1/sources/{source}/still.jpg". A part in braces matches any text without a slash. When
// two patterns match, the one with the fixed part is used. Main loop's thread only.
#pragma once

#include "appliance/panel/web/request.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace panel {

// What a token without a role is for.
enum class Purpose { None, Alarm, Metrics };

struct RouteRules {
    Role least = Role::Admin;
    Purpose purpose = Purpose::None;  // a token for this purpose may, too
    bool tokensOnly = false;          // a session is not enough: for GET addresses that change something
    bool tokenInQuery = false;        // the token may be in ?token=
    bool eventStream = false;         // the client gets events; there is no handler
    std::size_t mostBody = 64 * 1024; // bytes
};

class Router {
public:
    // Adding a pattern and method twice is a mistake in the program: std::logic_error.
    void add(std::string method, std::string pattern, Role least, Handler handler);
    void add(std::string method, std::string pattern, const RouteRules& rules, Handler handler);

    struct Route {
        std::string method;
        std::string pattern;
        RouteRules rules;
        Handler handler;
    };

    struct Found {
        const Route* route = nullptr; // null: see `allowed`
        Texts parts;
        std::string allowed; // no route for this method: those that there are ("GET, POST"); "": no such path
    };

    // The route of a method and a path. `path` is still percent-encoded; the parts are decoded here, so that a slash in
    // a part stays in the part. A part that does not decode to UTF-8 without control characters is no match.
    Found find(std::string_view method, std::string_view path) const;

    // For documents and tests that compare the routes with openapi.json.
    const std::vector<Route>& routes() const { return routes_; }

private:
    std::vector<Route> routes_;
};

} // namespace panel

// What a handler of the panel gets and what it answers.
//
// The server has checked the request before a handler sees it: the connection, the sizes, the Host, where a change comes
// from, and the role. All of this is used on the main loop's thread only.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace panel {

// What somebody may do; each role may do what those before it may.
enum class Role { None, Viewer, Operator, Admin };

// "none", "viewer", "operator", "admin".
std::string_view roleName(Role role);

using Texts = std::map<std::string, std::string, std::less<>>;

struct Request {
    std::string method; // "GET", "POST", "PUT", "PATCH", "DELETE"; a HEAD request is a GET here
    std::string path;   // without the query, decoded
    Texts parts;        // of the route's pattern, decoded: {"source", "3"}
    Texts query;        // decoded; of a name that comes twice the first value
    Texts form;         // the same of a body with the type application/x-www-form-urlencoded
    std::string body;   // at most the route's bound
    std::string type;   // of the body, in lower case and without parameters: "application/json"
    Role role = Role::None;
    std::string account; // user or token; "" without log-in
    std::string csrf;    // to put into the field "csrf" of a form without JavaScript; "" without log-in
    std::string address; // of the client: "127.0.0.1"
    Texts headers;       // names in lower case
};

struct Response {
    int status = 200;
    std::string type = "application/json";
    std::string body;
    std::shared_ptr<const std::string>
        sharedBody; // sent instead of `body` when it is set: one copy for all clients
    std::vector<std::pair<std::string, std::string>> headers; // line breaks in a value are refused with 500
};

// Answers the request: once, on the main loop's thread, now or later. Further calls and calls after the client has gone
// do nothing. A request whose Answer is dropped without a call gets 500.
using Answer = std::function<void(Response)>;

using Handler = std::function<void(const Request&, const Answer&)>;

// {"error": sentence} with that status.
Response errorResponse(int status, std::string_view sentence);

// A JSON answer; `json` is the text of a JSON value.
Response jsonResponse(std::string json, int status = 200);

} // namespace panel

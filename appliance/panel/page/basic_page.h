// The page for browsers without JavaScript: what the decoder shows, and a button for each source.
//
// It answers GET /basic and POST /basic/select, and takes what it shows from the routes of the API, with the role of the
// visitor. Main loop's thread only.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace panel {

class Router;

// Adds both routes. The router has to have GET /api/v1/status, GET /api/v1/sources and POST /api/v1/select when a request
// comes; without them the page says that the decoder's state is not known. `router` must outlive its handlers' calls.
void addBasicPage(Router& router);

struct BasicVisitor {
    bool maySelect = false;
    std::string account;
    std::string csrf; // for the forms; see Request
};

// The whole document. `status` and `sources` are as the API answers; what is missing in them is left out. `notice`: a
// sentence about the last selection, or "". All texts are escaped.
std::string basicDocument(const nlohmann::json& status, const nlohmann::json& sources,
                          const BasicVisitor& visitor, const std::string& notice);

// The document for visitors who are not logged in. `refused`: why the last log-in was refused, "wrong" or "wait"; other texts
// say nothing.
std::string basicLogIn(const std::string& refused);

// A text for HTML: & < > " and ' are escaped.
std::string escapedHtml(const std::string& text);

} // namespace panel

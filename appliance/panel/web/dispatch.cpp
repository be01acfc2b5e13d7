#include "appliance/panel/web/dispatch.h"

#include "appliance/panel/web/origin_check.h"

namespace panel {
namespace {

std::string_view header(const Request& request, std::string_view name) {
    const auto found = request.headers.find(name);
    return found == request.headers.end() ? std::string_view() : std::string_view(found->second);
}

std::string_view field(const Texts& texts, std::string_view name) {
    const auto found = texts.find(name);
    return found == texts.end() ? std::string_view() : std::string_view(found->second);
}

std::string tokenOf(const Request& request, const RouteRules& rules) {
    constexpr std::string_view bearer = "Bearer ";
    if (const std::string_view sent = header(request, "authorization"); sent.starts_with(bearer))
        return std::string(sent.substr(bearer.size()));
    if (const std::string_view sent = header(request, "x-token"); !sent.empty())
        return std::string(sent);
    return rules.tokenInQuery ? std::string(field(request.query, "token")) : std::string();
}

Response wrongMethod(const std::string& allowed) {
    Response response = errorResponse(405, "This address takes " + allowed);
    response.headers.emplace_back("Allow", allowed);
    return response;
}

bool isChange(const Request& request) {
    return request.method != "GET";
}

// A form without JavaScript has the session's secret in a field; a program marks its request with a type or a header.
bool isForm(const Request& request) {
    return request.type == "application/x-www-form-urlencoded" || request.type == "multipart/form-data" ||
           request.type == "text/plain" || request.type.empty();
}

bool mayChange(const Request& request, const Place& place, const Visitor& visitor) {
    if (visitor.token)
        return true;
    const bool marked = header(request, "x-panel") == "1" || !isForm(request);
    if (!isSameOrigin({header(request, "host"), header(request, "origin"), header(request, "sec-fetch-site"),
                       marked, place.secure}))
        return false;
    return marked || visitor.csrf.empty() || field(request.form, "csrf") == visitor.csrf;
}

bool hasRole(const Visitor& visitor, const RouteRules& rules) {
    if (rules.tokensOnly && !visitor.token)
        return false;
    if (rules.purpose != Purpose::None && visitor.purpose == rules.purpose)
        return true;
    return visitor.role >= rules.least;
}

Response notAllowed(const Visitor& visitor, const RouteRules& rules) {
    if (rules.tokensOnly && !visitor.token)
        return errorResponse(401, "This address needs a token");
    if (visitor.role == Role::None && visitor.purpose == Purpose::None)
        return errorResponse(401, "Log in first");
    return errorResponse(403, "This needs the role " + std::string(roleName(rules.least)));
}

Dispatched refused(Response response) {
    Dispatched result;
    result.refusal = std::move(response);
    return result;
}

} // namespace

Dispatched dispatch(Request& request, const std::string& encodedPath, const Place& place,
                    const Router& router, const Identify& identify) {
    if (!isKnownHost(header(request, "host"), place.localAddress, *place.hosts))
        return refused(errorResponse(421, "This is not a name of the panel. Panel.Hosts lists its names"));
    Router::Found found = router.find(request.method, encodedPath);
    if (found.route == nullptr)
        return refused(found.allowed.empty() ? errorResponse(404, "There is nothing at this address")
                                             : wrongMethod(found.allowed));
    const RouteRules& rules = found.route->rules;
    Visitor visitor = identify({std::string(header(request, "cookie")), tokenOf(request, rules)});
    if (isChange(request) && !mayChange(request, place, visitor))
        return refused(errorResponse(403, "The change does not come from a page of this panel"));
    if (!hasRole(visitor, rules))
        return refused(notAllowed(visitor, rules));
    if (request.body.size() > rules.mostBody)
        return refused(errorResponse(413, "The body is too long"));
    request.parts = std::move(found.parts);
    request.role = visitor.role;
    request.account = visitor.account;
    request.csrf = visitor.csrf;
    return {found.route, std::move(visitor), {}};
}

} // namespace panel

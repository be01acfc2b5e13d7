#include "appliance/panel/web/router.h"

#include "appliance/panel/web/url_text.h"

#include <algorithm>
#include <optional>
#include <set>
#include <stdexcept>

namespace panel {
namespace {

// Takes the part up to the next slash off the path, which begins with a slash.
std::string_view nextPart(std::string_view& path) {
    path.remove_prefix(1);
    const std::string_view part = path.substr(0, path.find('/'));
    path.remove_prefix(part.size());
    return part;
}

bool inBraces(std::string_view part) {
    return part.size() > 2 && part.front() == '{' && part.back() == '}';
}

struct Match {
    Texts parts;
    std::size_t fixed = 0; // parts of the pattern that are not in braces
};

std::optional<Match> match(std::string_view pattern, std::string_view path) {
    Match found;
    while (!pattern.empty() && !path.empty()) {
        const std::string_view wanted = nextPart(pattern);
        const std::string_view part = nextPart(path);
        if (inBraces(wanted)) {
            const auto text = decoded(part);
            if (!text || text->empty())
                return std::nullopt;
            found.parts.emplace(wanted.substr(1, wanted.size() - 2), *text);
        } else if (wanted == part) {
            ++found.fixed;
        } else {
            return std::nullopt;
        }
    }
    if (!pattern.empty() || !path.empty())
        return std::nullopt;
    return found;
}

std::string joined(const std::set<std::string>& methods) {
    std::string text;
    for (const std::string& method : methods)
        text += (text.empty() ? "" : ", ") + method;
    return text;
}

} // namespace

void Router::add(std::string method, std::string pattern, Role least, Handler handler) {
    RouteRules rules;
    rules.least = least;
    add(std::move(method), std::move(pattern), rules, std::move(handler));
}

void Router::add(std::string method, std::string pattern, const RouteRules& rules, Handler handler) {
    if (std::any_of(routes_.begin(), routes_.end(),
                    [&](const Route& route) { return route.method == method && route.pattern == pattern; }))
        throw std::logic_error("the route " + method + ' ' + pattern + " is there twice");
    routes_.push_back({std::move(method), std::move(pattern), rules, std::move(handler)});
}

Router::Found Router::find(std::string_view method, std::string_view path) const {
    Found found;
    std::set<std::string> methods;
    std::size_t fixed = 0;
    if (path.empty() || path.front() != '/')
        return found;
    for (const Route& route : routes_) {
        std::optional<Match> matched = match(route.pattern, path);
        if (!matched)
            continue;
        methods.insert(route.method);
        if (route.method == method && (found.route == nullptr || matched->fixed > fixed)) {
            found.route = &route;
            found.parts = std::move(matched->parts);
            fixed = matched->fixed;
        }
    }
    found.allowed = joined(methods);
    return found;
}

} // namespace panel

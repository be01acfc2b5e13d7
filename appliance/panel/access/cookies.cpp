#include "appliance/panel/access/cookies.h"

#include <libcommon/text.h>

#include <algorithm>

namespace panel {

std::string cookieName(std::uint16_t port, bool secure) {
    return (secure ? "__Host-panel-" : "panel-") + std::to_string(port);
}

std::optional<std::string> readCookie(std::string_view header, std::string_view name) {
    std::optional<std::string> value;
    while (!header.empty()) {
        const std::string_view part = header.substr(0, header.find(';'));
        header.remove_prefix(std::min(header.size(), part.size() + 1));
        const std::string_view cookie = libcommon::trimmed(part);
        if (cookie.size() <= name.size() || !cookie.starts_with(name) || cookie[name.size()] != '=')
            continue;
        if (value)
            return std::nullopt;
        value = cookie.substr(name.size() + 1);
    }
    return value;
}

std::string setCookie(std::string_view name, std::string_view value, bool secure) {
    std::string text(name);
    text.append("=").append(value).append("; Path=/; HttpOnly; SameSite=Strict");
    if (secure)
        text += "; Secure";
    if (value.empty())
        text += "; Max-Age=0";
    return text;
}

} // namespace panel

// The session's cookie.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace panel {

// Its name: each port has its own, because a browser gives the cookies of all ports of a machine to each of them. Over TLS
// it has the prefix with which browsers keep other sites and plain connections from setting it.
std::string cookieName(std::uint16_t port, bool secure);

// The value of the cookie in a header Cookie; nothing if it is not there, or there twice.
std::optional<std::string> readCookie(std::string_view header, std::string_view name);

// The value of Set-Cookie. An empty value deletes the cookie.
std::string setCookie(std::string_view name, std::string_view value, bool secure);

} // namespace panel

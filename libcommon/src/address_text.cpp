#include "libcommon/src/address_text.h"

#include <algorithm>
#include <arpa/inet.h>
#include <net/if.h>

namespace network {

namespace {

constexpr std::size_t maximumHostLength = 255;
constexpr std::size_t maximumZoneLength = IF_NAMESIZE - 1; // a zone is an interface's name or number

// ASCII only and independent of the locale.
bool isNameCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '-' || c == '_';
}

AddressParts unreadable(const char* error) {
    return {.host = {}, .port = 0, .error = error};
}

// The port, or 0 for anything that is not a decimal number from 1 to 65535.
unsigned short portOf(std::string_view digits) {
    constexpr std::size_t longestPort = 5;
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    if (digits.empty() || digits.size() > longestPort || !std::all_of(digits.begin(), digits.end(), isDigit))
        return 0;
    int port = 0;
    for (const char digit : digits)
        port = port * 10 + (digit - '0');
    return port > 65535 ? static_cast<unsigned short>(0) : static_cast<unsigned short>(port);
}

// `rest`: the text after the host, with its colon; may be empty.
AddressParts hostAndPort(std::string_view host, std::string_view rest) {
    AddressParts parts = {.host = std::string(host), .port = 0, .error = ""};
    if (rest.empty())
        return parts;
    parts.port = rest.front() == ':' ? portOf(rest.substr(1)) : static_cast<unsigned short>(0);
    return parts.port == 0 ? unreadable("the port is not a number from 1 to 65535") : parts;
}

} // namespace

bool isIPv6Text(std::string_view text) {
    const std::size_t percent = text.find('%');
    const std::string address(text.substr(0, percent));
    const std::string_view zone = percent == std::string_view::npos ? "0" : text.substr(percent + 1);
    in6_addr parsed;
    return address.find('\0') == std::string::npos && inet_pton(AF_INET6, address.c_str(), &parsed) == 1 &&
           !zone.empty() && zone.size() <= maximumZoneLength &&
           std::all_of(zone.begin(), zone.end(), isNameCharacter);
}

bool isHostText(std::string_view host) {
    if (host.empty() || host.size() > maximumHostLength)
        return false;
    if (host.find(':') != std::string_view::npos)
        return isIPv6Text(host);
    return host.front() != '-' && std::all_of(host.begin(), host.end(), isNameCharacter);
}

AddressParts parseAddress(std::string_view address) {
    if (address.empty())
        return unreadable("it is empty");
    if (address.front() == '[') {
        const std::size_t end = address.find(']');
        if (end == std::string_view::npos || !isIPv6Text(address.substr(1, end - 1)))
            return unreadable("there is no IPv6 address between brackets");
        return hostAndPort(address.substr(1, end - 1), address.substr(end + 1));
    }
    const std::size_t colon = address.find(':');
    // More than one colon and no brackets: an IPv6 address, which leaves no room for a port.
    if (colon != address.rfind(':'))
        return isIPv6Text(address) ? hostAndPort(address, {})
                                   : unreadable("it is neither host:port nor IPv6");
    const std::string_view host = address.substr(0, colon);
    if (!isHostText(host))
        return unreadable("the host is not made of letters, digits, \".\", \"-\" and \"_\"");
    return hostAndPort(host, colon == std::string_view::npos ? "" : address.substr(colon));
}

} // namespace network

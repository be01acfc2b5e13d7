#include "appliance/panel/web/origin_check.h"

#include "appliance/panel/web/lower_case.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>

namespace panel {
namespace {

bool isHostCharacter(char character) {
    return (character >= 'a' && character <= 'z') || (character >= '0' && character <= '9') ||
           character == '-' || character == '.' || character == '_';
}

bool isPort(std::string_view text) {
    return !text.empty() && text.size() <= 5 &&
           text.find_first_not_of("0123456789") == std::string_view::npos;
}

// The end of the host in the text, with the brackets of an IPv6 address; 0 if there is none.
std::size_t hostLength(std::string_view text) {
    if (!text.starts_with('['))
        return std::min(text.find(':'), text.size());
    const std::size_t end = text.find(']');
    return end == std::string_view::npos ? 0 : end + 1;
}

bool isHost(std::string_view host) {
    if (host.starts_with('[')) {
        const std::string address(host.substr(1, host.size() - 2));
        std::array<unsigned char, 16> bytes{};
        return inet_pton(AF_INET6, address.c_str(), bytes.data()) == 1;
    }
    return !host.empty() && host.size() <= 253 && std::all_of(host.begin(), host.end(), isHostCharacter);
}

// The numeric address in its usual spelling; "" if it is none.
std::string numeric(std::string_view host) {
    if (host.starts_with('['))
        host = host.substr(1, host.size() - 2);
    const std::string text(host);
    std::array<unsigned char, 16> bytes{};
    std::array<char, INET6_ADDRSTRLEN> spelling{};
    for (const int family : {AF_INET, AF_INET6}) {
        if (inet_pton(family, text.c_str(), bytes.data()) == 1)
            return inet_ntop(family, bytes.data(), spelling.data(), spelling.size());
    }
    return {};
}

bool sameAuthority(const Authority& a, const Authority& b, std::string_view usualPort) {
    const auto portOf = [usualPort](const Authority& authority) {
        return authority.port.empty() ? std::string(usualPort) : authority.port;
    };
    return !a.host.empty() && a.host == b.host && portOf(a) == portOf(b);
}

bool isOwnOrigin(const RequestSource& source) {
    constexpr std::string_view plain = "http://";
    constexpr std::string_view tls = "https://";
    const Authority host = readAuthority(source.host);
    if (source.origin.starts_with(tls))
        return sameAuthority(readAuthority(source.origin.substr(tls.size())), host, "443");
    return !source.secure && source.origin.starts_with(plain) &&
           sameAuthority(readAuthority(source.origin.substr(plain.size())), host, "80");
}

} // namespace

Authority readAuthority(std::string_view text) {
    const std::string all = lower(text);
    const std::size_t length = hostLength(all);
    std::string host = all.substr(0, length);
    const std::string rest = all.substr(length);
    const bool goodRest = rest.empty() || (rest.front() == ':' && isPort(rest.substr(1)));
    if (host.size() > 1 && host.back() == '.')
        host.pop_back();
    if (!goodRest || !isHost(host))
        return {};
    return {std::move(host), rest.empty() ? "" : rest.substr(1)};
}

bool isKnownHost(std::string_view host, std::string_view localAddress,
                 const std::vector<std::string>& names) {
    const std::string name = readAuthority(host).host;
    if (name.empty())
        return false;
    if (const std::string address = numeric(name); !address.empty() && address == numeric(localAddress))
        return true;
    if (name == "localhost" && (localAddress.starts_with("127.") || localAddress == "::1"))
        return true;
    return std::any_of(names.begin(), names.end(),
                       [&name](const std::string& known) { return readAuthority(known).host == name; });
}

bool isSameOrigin(const RequestSource& source) {
    if (!source.fetchSite.empty() && source.fetchSite != "same-origin")
        return false;
    if (!source.origin.empty())
        return isOwnOrigin(source);
    return source.marked || !source.fetchSite.empty();
}

} // namespace panel

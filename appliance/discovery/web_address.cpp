#include "appliance/discovery/web_address.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <charconv>
#include <cstring>
#include <curl/curl.h>
#include <ifaddrs.h>
#include <initializer_list>
#include <memory>
#include <net/if.h>

namespace {

constexpr std::size_t maxNetworks = 64;

using Url = std::unique_ptr<CURLU, decltype(&curl_url_cleanup)>;

// "" if the URL does not have the part.
std::string part(CURLU* url, CURLUPart wanted) {
    char* text = nullptr;
    if (curl_url_get(url, wanted, &text, 0) != CURLUE_OK) {
        return {};
    }
    std::string copy(text);
    curl_free(text);
    return copy;
}

std::string withoutBrackets(const std::string& host) {
    return host.starts_with('[') && host.ends_with(']') ? host.substr(1, host.size() - 2) : host;
}

bool isPlain(std::string_view text) {
    return text.size() <= maxUrlBytes &&
           std::ranges::all_of(text, [](char c) { return c > ' ' && c < 0x7f; });
}

std::optional<WebAddress> readUrl(std::string_view text, std::initializer_list<std::string_view> schemes) {
    const Url url(curl_url(), &curl_url_cleanup);
    if (!isPlain(text) || !url ||
        curl_url_set(url.get(), CURLUPART_URL, std::string(text).c_str(), CURLU_NON_SUPPORT_SCHEME) !=
            CURLUE_OK) {
        return std::nullopt;
    }
    WebAddress address;
    address.scheme = part(url.get(), CURLUPART_SCHEME);
    address.host = withoutBrackets(part(url.get(), CURLUPART_HOST));
    const std::string port = part(url.get(), CURLUPART_PORT);
    std::from_chars(port.data(), port.data() + port.size(), address.port);
    address.path = part(url.get(), CURLUPART_PATH);
    if (const std::string query = part(url.get(), CURLUPART_QUERY); !query.empty()) {
        address.path += "?" + query;
    }
    if (address.path.empty()) {
        address.path = "/";
    }
    const bool known = std::ranges::find(schemes, address.scheme) != schemes.end();
    return known && !address.host.empty() && isPlain(address.url()) ? std::optional(address) : std::nullopt;
}

std::uint32_t numberOf(const sockaddr* address) {
    sockaddr_in in{};
    std::memcpy(&in, address, sizeof in);
    return ntohl(in.sin_addr.s_addr);
}

bool isUsable(const ifaddrs& one, const std::string& interface) {
    const unsigned wanted = IFF_UP | IFF_RUNNING;
    if (one.ifa_addr == nullptr || one.ifa_netmask == nullptr || one.ifa_addr->sa_family != AF_INET ||
        (one.ifa_flags & wanted) != wanted) {
        return false;
    }
    // An interface that the user names is tried even if the kernel does not mark it for groups, as with lo.
    return interface.empty() ? (one.ifa_flags & IFF_MULTICAST) != 0 : interface == one.ifa_name;
}

} // namespace

std::string WebAddress::hostAndPort() const {
    const bool ipv6 = host.find(':') != std::string::npos;
    return (ipv6 ? "[" + host + "]" : host) + (port == 0 ? "" : ":" + std::to_string(port));
}

std::string WebAddress::url() const {
    return scheme + "://" + hostAndPort() + path;
}

std::optional<WebAddress> readServiceUrl(std::string_view text) {
    return readUrl(text, {"http", "https"});
}

std::optional<WebAddress> readStreamUrl(std::string_view text) {
    return readUrl(text, {"rtsp", "rtsps", "http", "https"});
}

std::optional<std::uint32_t> ipv4Of(const std::string& text) {
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1) {
        return std::nullopt;
    }
    return ntohl(address.s_addr);
}

std::string ipv4Text(std::uint32_t address) {
    const in_addr in{htonl(address)};
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &in, text.data(), text.size());
    return text.data();
}

std::vector<LocalNetwork> localNetworks(const std::string& interface) {
    std::vector<LocalNetwork> networks;
    ifaddrs* all = nullptr;
    if (getifaddrs(&all) != 0) {
        return networks;
    }
    for (const ifaddrs* one = all; one != nullptr && networks.size() < maxNetworks; one = one->ifa_next) {
        if (isUsable(*one, interface)) {
            networks.push_back({one->ifa_name, if_nametoindex(one->ifa_name), numberOf(one->ifa_addr),
                                numberOf(one->ifa_netmask)});
        }
    }
    freeifaddrs(all);
    return networks;
}

ChosenAddress chooseAddress(const std::vector<std::string>& named, std::uint32_t sender,
                            const LocalNetwork& network) {
    std::optional<WebAddress> neighbour;
    std::optional<WebAddress> byName;
    std::string elsewhere;
    for (const std::string& text : named) {
        std::optional<WebAddress> address = readServiceUrl(text);
        if (!address) {
            continue;
        }
        const std::optional<std::uint32_t> host = ipv4Of(address->host);
        if (host == sender) {
            return {address, {}};
        }
        if (host && network.contains(*host)) {
            neighbour = neighbour ? neighbour : address;
        } else if (!host && address->host.find(':') == std::string::npos) {
            byName = byName ? byName : address;
        } else {
            elsewhere = address->hostAndPort();
        }
    }
    if (neighbour) {
        return {neighbour, {}};
    }
    if (byName) {
        byName->host = ipv4Text(sender);
        return {byName, {}};
    }
    return {std::nullopt, elsewhere.empty() ? "it names no address that can be used"
                                            : "it names an address in another network: " + elsewhere};
}

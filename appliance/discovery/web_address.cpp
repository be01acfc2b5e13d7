#include "appliance/discovery/web_address.h"

#include <algorithm>
#include <charconv>
#include <curl/curl.h>
#include <initializer_list>
#include <memory>

namespace {

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

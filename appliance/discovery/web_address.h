// Addresses that devices name: of their services, and of their streams.
#pragma once

#include "appliance/discovery/local_network.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// A URL in its parts. User name and password in it are dropped, and so is a fragment.
struct WebAddress {
    std::string scheme;
    std::string host;       // IPv6 without brackets
    std::uint16_t port = 0; // 0: the URL has none
    std::string path;       // with the query; begins with '/'

    std::string url() const;
    std::string hostAndPort() const; // "192.168.1.20", "192.168.1.20:8080", "[fe80::1]:80"
};

constexpr std::size_t maxUrlBytes = 2000;

// Nothing if the text is no URL with a host and one of these schemes, is too long, or has blanks or control characters.
std::optional<WebAddress> readServiceUrl(std::string_view text); // http, https
std::optional<WebAddress> readStreamUrl(std::string_view text);  // also rtsp, rtsps

// Which of the addresses that a device names is used.
struct ChosenAddress {
    std::optional<WebAddress> address; // nothing: none of them
    std::string problem;               // why
};

// `sender` is where the answer came from, in `network`. An address with the sender as host comes first, then one in
// the same network, then one with a host name, which is replaced by the sender: names are not looked up. Others are
// not used, so that no device sends us elsewhere.
ChosenAddress chooseAddress(const std::vector<std::string>& named, std::uint32_t sender,
                            const LocalNetwork& network);

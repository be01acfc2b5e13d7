// Addresses that devices name: of their services, and of their streams.
#pragma once

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

// An IPv4 network of this machine. Addresses are in host byte order.
struct LocalNetwork {
    std::string interface;
    unsigned interfaceIndex = 0;
    std::uint32_t address = 0; // our own
    std::uint32_t mask = 0;

    bool contains(std::uint32_t other) const { return (address & mask) == (other & mask); }
};

// Nothing if the text is not the four numbers of an IPv4 address.
std::optional<std::uint32_t> ipv4Of(const std::string& text);
std::string ipv4Text(std::uint32_t address);

// The IPv4 networks of all interfaces that are up and can send to groups; of `interface` alone if it is not empty.
// At most 64.
std::vector<LocalNetwork> localNetworks(const std::string& interface);

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

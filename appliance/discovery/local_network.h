// The IPv4 networks that this machine is in.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

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

#include "appliance/discovery/local_network.h"

#include <arpa/inet.h>
#include <array>
#include <cstring>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

namespace {

constexpr std::size_t maxNetworks = 64;

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

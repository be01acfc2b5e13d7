#include "appliance/network/network_state.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>

namespace network {
namespace {

std::string textOf(std::uint32_t address) {
    const in_addr in{htonl(address)};
    std::array<char, INET_ADDRSTRLEN> text{};
    return inet_ntop(AF_INET, &in, text.data(), text.size()) == nullptr ? "" : text.data();
}

const Link* linkOf(const NetworkState& state, int index) {
    const auto found = std::ranges::find(state.links, index, &Link::index);
    return found == state.links.end() ? nullptr : &*found;
}

bool contains(const Address& network, std::uint32_t address) {
    const std::uint32_t mask = network.prefix == 0 ? 0 : ~std::uint32_t{0} << (32 - network.prefix);
    return ((network.peer ^ address) & mask) == 0;
}

// Lower is better; the first address of the best rank is taken.
int rankOf(const Address& address, const DefaultRoute& route) {
    const bool near = route.gateway != 0 && contains(address, route.gateway);
    return (address.outOfDate ? 4 : 0) + (near ? 0 : 2) + (address.secondary ? 1 : 0);
}

// 0: the route has no address.
std::uint32_t sourceOf(const NetworkState& state, const DefaultRoute& route) {
    if (route.source != 0)
        return route.source;
    const Address* best = nullptr;
    for (const Address& address : state.addresses) {
        if (address.link != route.link || !address.reachesOut)
            continue;
        if (best == nullptr || rankOf(address, route) < rankOf(*best, route))
            best = &address;
    }
    return best == nullptr ? 0 : best->own;
}

} // namespace

DefaultAddress defaultAddress(const NetworkState& state) {
    std::vector<DefaultRoute> routes = state.routes;
    std::ranges::stable_sort(routes, {}, &DefaultRoute::metric);
    for (const DefaultRoute& route : routes) {
        const Link* link = linkOf(state, route.link);
        if (link == nullptr || !link->up)
            continue;
        if (const std::uint32_t source = sourceOf(state, route); source != 0)
            return {textOf(source), link->name};
    }
    return {};
}

} // namespace network

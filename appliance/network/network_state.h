// What the kernel says about this machine's network, as far as the decoder's address depends on it.
//
// Plain values and pure functions; network_reader.h fills them. IPv4 only. Addresses are numbers in host byte order.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace network {

struct Link {
    int index = 0; // of the interface, above 0
    std::string name;
    bool up = false;
};

struct Address {
    int link = 0;
    std::uint32_t own = 0;   // of this machine
    std::uint32_t peer = 0;  // of the other end; on a shared network the same as `own`
    int prefix = 0;          // bits, 0 to 32
    bool secondary = false;  // another address of the same network was set first
    bool reachesOut = false; // usable beyond the own machine
    bool outOfDate = false;  // its preferred time is over
};

// A route to everywhere. A route with several next hops is one entry for each.
struct DefaultRoute {
    int link = 0;
    std::uint32_t gateway = 0; // 0: none
    std::uint32_t source = 0;  // the address that the route asks for; 0: none
    std::uint32_t metric = 0;
};

struct NetworkState {
    std::vector<Link> links;
    std::vector<Address> addresses;
    std::vector<DefaultRoute> routes; // in the kernel's order
};

struct DefaultAddress {
    std::string text; // "192.168.1.20"; "" when there is none
    std::string link; // the interface's name; "" when there is none
};

// The address with which this machine reaches other networks: that of the default route with the lowest metric whose
// interface is up and has an address. Among several addresses of the interface it is the one that the kernel takes:
// the route's own source, else the first one in the gateway's network, else the first one.
DefaultAddress defaultAddress(const NetworkState& state);

} // namespace network

#include "appliance/network/network_state.h"

#include <gtest/gtest.h>

namespace network {
namespace {

constexpr std::uint32_t ip(std::uint32_t a, std::uint32_t b, std::uint32_t c, std::uint32_t d) {
    return a << 24 | b << 16 | c << 8 | d;
}

Address onNetwork(int link, std::uint32_t own, int prefix = 24) {
    return {.link = link, .own = own, .peer = own, .prefix = prefix, .reachesOut = true};
}

DefaultRoute route(int link, std::uint32_t gateway, std::uint32_t metric = 0) {
    return {.link = link, .gateway = gateway, .source = 0, .metric = metric};
}

NetworkState twoLinks() {
    return {.links = {{1, "lo", true}, {2, "eth0", true}, {3, "wlan0", true}},
            .addresses = {onNetwork(2, ip(192, 168, 1, 20)), onNetwork(3, ip(10, 0, 0, 7))},
            .routes = {route(2, ip(192, 168, 1, 1), 100), route(3, ip(10, 0, 0, 1), 600)}};
}

TEST(DefaultAddress, IsThatOfTheDefaultRoutesInterface) {
    const DefaultAddress found = defaultAddress(twoLinks());
    EXPECT_EQ(found.text, "192.168.1.20");
    EXPECT_EQ(found.link, "eth0");
}

TEST(DefaultAddress, LowestMetricWinsWhateverTheOrder) {
    NetworkState state = twoLinks();
    state.routes[1].metric = 50;
    EXPECT_EQ(defaultAddress(state).text, "10.0.0.7");
}

TEST(DefaultAddress, FirstOfEqualMetricsWins) {
    NetworkState state = twoLinks();
    state.routes[1].metric = state.routes[0].metric;
    EXPECT_EQ(defaultAddress(state).text, "192.168.1.20");
}

TEST(DefaultAddress, IsEmptyWithoutARoute) {
    NetworkState state = twoLinks();
    state.routes.clear();
    EXPECT_EQ(defaultAddress(state).text, "");
    EXPECT_EQ(defaultAddress({}).text, "");
}

TEST(DefaultAddress, SkipsInterfacesThatAreDownGoneOrWithoutAnAddress) {
    NetworkState state = twoLinks();
    state.links[1].up = false;
    EXPECT_EQ(defaultAddress(state).text, "10.0.0.7");
    state = twoLinks();
    state.links.erase(state.links.begin() + 1);
    EXPECT_EQ(defaultAddress(state).text, "10.0.0.7");
    state = twoLinks();
    state.addresses.erase(state.addresses.begin());
    EXPECT_EQ(defaultAddress(state).text, "10.0.0.7");
}

TEST(DefaultAddress, OfSeveralIsTheOneInTheGatewaysNetwork) {
    NetworkState state = twoLinks();
    state.addresses = {onNetwork(2, ip(172, 16, 0, 9)), onNetwork(2, ip(192, 168, 1, 20))};
    EXPECT_EQ(defaultAddress(state).text, "192.168.1.20");
}

TEST(DefaultAddress, PrefersTheFirstOfItsNetworkAndOneThatIsNotOutOfDate) {
    NetworkState state = twoLinks();
    state.addresses = {onNetwork(2, ip(192, 168, 1, 21)), onNetwork(2, ip(192, 168, 1, 20))};
    EXPECT_EQ(defaultAddress(state).text, "192.168.1.21");
    state.addresses[0].secondary = true;
    EXPECT_EQ(defaultAddress(state).text, "192.168.1.20");
    state.addresses[0].secondary = false;
    state.addresses[0].outOfDate = true;
    EXPECT_EQ(defaultAddress(state).text, "192.168.1.20");
}

TEST(DefaultAddress, RouteMayNameItsSource) {
    NetworkState state = twoLinks();
    state.routes[0].source = ip(192, 168, 1, 99);
    EXPECT_EQ(defaultAddress(state).text, "192.168.1.99");
}

TEST(DefaultAddress, PointToPointAndSingleHostsHaveOne) {
    NetworkState state = twoLinks();
    Address tunnel = onNetwork(2, ip(10, 9, 0, 2), 32);
    tunnel.peer = ip(10, 9, 0, 1);
    state.addresses = {tunnel};
    state.routes = {route(2, 0)};
    EXPECT_EQ(defaultAddress(state).text, "10.9.0.2");
    state.addresses[0].prefix = 0;
    EXPECT_EQ(defaultAddress(state).text, "10.9.0.2");
}

TEST(DefaultAddress, LoopbackAddressesDoNotCount) {
    NetworkState state = twoLinks();
    state.addresses[0].reachesOut = false;
    state.addresses[1].reachesOut = false;
    EXPECT_EQ(defaultAddress(state).text, "");
}

} // namespace
} // namespace network

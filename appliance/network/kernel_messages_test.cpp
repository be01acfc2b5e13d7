#include "appliance/network/kernel_messages.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <linux/if_addr.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <random>
#include <string>

namespace network {
namespace {

constexpr std::uint32_t request = 7;

std::string bytesOf(const void* data, std::size_t size) {
    return {static_cast<const char*>(data), size};
}

template<class Value>
std::string bytesOf(const Value& value) {
    return bytesOf(&value, sizeof value);
}

std::string padded(std::string text) {
    text.resize(NLMSG_ALIGN(text.size()), '\0');
    return text;
}

std::string attribute(unsigned short kind, const std::string& value) {
    rtattr header{};
    header.rta_len = static_cast<unsigned short>(RTA_LENGTH(value.size()));
    header.rta_type = kind;
    return padded(bytesOf(header) + value);
}

std::string number(unsigned short kind, std::uint32_t value) {
    return attribute(kind, bytesOf(value));
}

std::string address(unsigned short kind, const char* text) {
    in_addr in{};
    inet_pton(AF_INET, text, &in);
    return attribute(kind, bytesOf(in));
}

template<class Fixed>
std::string message(int type, const Fixed& fixed, const std::string& attributes, int flags = NLM_F_MULTI,
                    std::uint32_t sequence = request) {
    nlmsghdr header{};
    const std::string body = padded(bytesOf(fixed)) + attributes;
    header.nlmsg_len = static_cast<std::uint32_t>(sizeof header + body.size());
    header.nlmsg_type = static_cast<std::uint16_t>(type);
    header.nlmsg_flags = static_cast<std::uint16_t>(flags);
    header.nlmsg_seq = sequence;
    return padded(bytesOf(header) + body);
}

std::string done(int flags = NLM_F_MULTI) {
    return message(NLMSG_DONE, int{0}, "", flags);
}

rtmsg defaultRoute() {
    rtmsg route{};
    route.rtm_family = AF_INET;
    route.rtm_table = RT_TABLE_MAIN;
    route.rtm_type = RTN_UNICAST;
    return route;
}

std::string eth0() {
    ifinfomsg link{};
    link.ifi_index = 2;
    link.ifi_flags = IFF_UP;
    return message(RTM_NEWLINK, link, attribute(IFLA_IFNAME, std::string("eth0\0", 5)));
}

std::string eth0Address() {
    ifaddrmsg fixed{};
    fixed.ifa_family = AF_INET;
    fixed.ifa_prefixlen = 24;
    fixed.ifa_index = 2;
    return message(RTM_NEWADDR, fixed,
                   address(IFA_ADDRESS, "192.168.1.20") + address(IFA_LOCAL, "192.168.1.20"));
}

std::string eth0Route(const std::string& more = "") {
    return message(RTM_NEWROUTE, defaultRoute(),
                   number(RTA_OIF, 2) + address(RTA_GATEWAY, "192.168.1.1") + number(RTA_PRIORITY, 100) +
                       more);
}

// Exactly as large as the data, so that a sanitizer sees each read beyond it.
Answer read(const std::string& data, NetworkState& state) {
    std::vector<std::uint64_t> aligned((data.size() + 7) / 8);
    std::memcpy(aligned.data(), data.data(), data.size());
    return readAnswer(aligned.data(), data.size(), request, state);
}

TEST(KernelMessages, LinkAddressAndRouteAreRead) {
    NetworkState state;
    EXPECT_EQ(read(eth0() + eth0Address(), state), Answer::More);
    EXPECT_EQ(read(eth0Route() + done(), state), Answer::Done);
    ASSERT_EQ(state.links.size(), 1U);
    EXPECT_EQ(state.links[0].name, "eth0");
    EXPECT_TRUE(state.links[0].up);
    ASSERT_EQ(state.addresses.size(), 1U);
    EXPECT_EQ(state.addresses[0].prefix, 24);
    ASSERT_EQ(state.routes.size(), 1U);
    EXPECT_EQ(state.routes[0].metric, 100U);
    EXPECT_EQ(defaultAddress(state).text, "192.168.1.20");
}

TEST(KernelMessages, FlagsOfAnAddressAreRead) {
    ifaddrmsg fixed{};
    fixed.ifa_family = AF_INET;
    fixed.ifa_index = 2;
    fixed.ifa_scope = RT_SCOPE_HOST;
    NetworkState state;
    read(message(RTM_NEWADDR, fixed,
                 address(IFA_LOCAL, "10.0.0.1") + number(IFA_FLAGS, IFA_F_SECONDARY | IFA_F_DEPRECATED)),
         state);
    ASSERT_EQ(state.addresses.size(), 1U);
    EXPECT_TRUE(state.addresses[0].secondary);
    EXPECT_TRUE(state.addresses[0].outOfDate);
    EXPECT_FALSE(state.addresses[0].reachesOut);
}

TEST(KernelMessages, OtherRoutesAreLeftOut) {
    NetworkState state;
    rtmsg route = defaultRoute();
    const std::string link = number(RTA_OIF, 2);
    route.rtm_dst_len = 24;
    read(message(RTM_NEWROUTE, route, link), state);
    route = defaultRoute();
    route.rtm_type = RTN_BLACKHOLE;
    read(message(RTM_NEWROUTE, route, link), state);
    route = defaultRoute();
    route.rtm_family = AF_INET6;
    read(message(RTM_NEWROUTE, route, link), state);
    read(message(RTM_NEWROUTE, defaultRoute(), link + number(RTA_TABLE, 1000)), state);
    route = defaultRoute();
    route.rtm_flags = RTNH_F_DEAD;
    read(message(RTM_NEWROUTE, route, link), state);
    EXPECT_TRUE(state.routes.empty());
}

TEST(KernelMessages, EachNextHopIsARoute) {
    std::string hops;
    for (const int link : {2, 3, 4}) {
        const std::string gateway = address(RTA_GATEWAY, "10.0.0.1");
        rtnexthop hop{};
        hop.rtnh_len = static_cast<unsigned short>(sizeof hop + gateway.size());
        hop.rtnh_ifindex = link;
        hop.rtnh_flags = link == 4 ? RTNH_F_DEAD : 0;
        hops += bytesOf(hop) + gateway;
    }
    NetworkState state;
    read(message(RTM_NEWROUTE, defaultRoute(), number(RTA_PRIORITY, 5) + attribute(RTA_MULTIPATH, hops)),
         state);
    ASSERT_EQ(state.routes.size(), 2U);
    EXPECT_EQ(state.routes[1].link, 3);
    EXPECT_EQ(state.routes[1].metric, 5U);
    EXPECT_EQ(state.routes[1].gateway, 0x0a000001U);
}

TEST(KernelMessages, InterruptedListIsToldApart) {
    NetworkState state;
    EXPECT_EQ(read(done(NLM_F_MULTI | NLM_F_DUMP_INTR), state), Answer::Changed);
}

TEST(KernelMessages, RefusalHasItsReason) {
    NetworkState state;
    EXPECT_EQ(read(message(NLMSG_ERROR, nlmsgerr{-EPERM, {}}, ""), state), Answer::Failed);
    EXPECT_EQ(errno, EPERM);
    EXPECT_EQ(read(message(NLMSG_ERROR, nlmsgerr{0, {}}, ""), state), Answer::Failed);
    EXPECT_EQ(errno, EPROTO);
}

TEST(KernelMessages, AnswersToOtherRequestsAreLeftOut) {
    NetworkState state;
    rtmsg route = defaultRoute();
    EXPECT_EQ(read(message(RTM_NEWROUTE, route, number(RTA_OIF, 2), NLM_F_MULTI, request + 1), state),
              Answer::More);
    EXPECT_EQ(read(message(NLMSG_DONE, int{0}, "", NLM_F_MULTI, request + 1), state), Answer::More);
    EXPECT_TRUE(state.routes.empty());
}

TEST(KernelMessages, EachTruncationIsHarmless) {
    const std::string whole = eth0() + eth0Address() + eth0Route() + done();
    for (std::size_t size = 0; size < whole.size(); ++size) {
        NetworkState state;
        EXPECT_EQ(read(whole.substr(0, size), state), Answer::More) << size;
    }
}

TEST(KernelMessages, GarbageIsHarmless) {
    const std::string whole =
        eth0() + eth0Address() + eth0Route(attribute(RTA_MULTIPATH, std::string(40, '\7')));
    std::mt19937 random(20261122);
    for (int round = 0; round < 20'000; ++round) {
        std::string data = whole;
        for (int change = 0; change < 1 + round % 8; ++change)
            data[random() % data.size()] = static_cast<char>(random());
        NetworkState state;
        read(data, state);
        defaultAddress(state);
        EXPECT_LE(state.routes.size(), 10U);
    }
}

} // namespace
} // namespace network

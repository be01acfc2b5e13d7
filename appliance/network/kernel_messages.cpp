#include "appliance/network/kernel_messages.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <linux/if_addr.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <optional>

namespace network {
namespace {

// The attributes of one message. An attribute that is cut off ends the list.
class Attributes {
public:
    Attributes(const rtattr* first, std::size_t size) : first_(first), size_(size) {}

    // Null when there is none of this kind with at least `wanted` bytes. Of several the last one counts.
    const rtattr* find(unsigned short kind, std::size_t wanted) const {
        const rtattr* found = nullptr;
        auto left = static_cast<int>(size_);
        for (const rtattr* at = first_; RTA_OK(at, left); at = RTA_NEXT(at, left))
            if ((at->rta_type & NLA_TYPE_MASK) == kind && RTA_PAYLOAD(at) >= wanted)
                found = at;
        return found;
    }

    std::optional<std::uint32_t> number(unsigned short kind) const {
        const rtattr* found = find(kind, sizeof(std::uint32_t));
        if (found == nullptr)
            return std::nullopt;
        std::uint32_t value = 0;
        std::memcpy(&value, RTA_DATA(found), sizeof value);
        return value;
    }

    std::uint32_t address(unsigned short kind) const { return ntohl(number(kind).value_or(0)); }

private:
    const rtattr* first_;
    std::size_t size_;
};

// The fixed part of a message, and its attributes behind it. Null when the message is too short.
template<class Fixed>
const Fixed* fixedPart(const nlmsghdr& message) {
    return message.nlmsg_len < NLMSG_LENGTH(sizeof(Fixed)) ? nullptr
                                                           : static_cast<const Fixed*>(NLMSG_DATA(&message));
}

template<class Fixed>
Attributes attributesOf(const nlmsghdr& message) {
    const auto* start = reinterpret_cast<const char*>(&message) + NLMSG_SPACE(sizeof(Fixed));
    const std::size_t fixed = NLMSG_SPACE(sizeof(Fixed));
    return {reinterpret_cast<const rtattr*>(start),
            message.nlmsg_len < fixed ? 0 : message.nlmsg_len - fixed};
}

void addLink(const nlmsghdr& message, NetworkState& state) {
    const auto* link = fixedPart<ifinfomsg>(message);
    if (link == nullptr || link->ifi_index <= 0)
        return;
    std::string name;
    if (const rtattr* found = attributesOf<ifinfomsg>(message).find(IFLA_IFNAME, 1)) {
        const auto* text = static_cast<const char*>(RTA_DATA(found));
        name.assign(text, strnlen(text, RTA_PAYLOAD(found)));
    }
    state.links.push_back({link->ifi_index, name, (link->ifi_flags & IFF_UP) != 0});
}

void addAddress(const nlmsghdr& message, NetworkState& state) {
    const auto* fixed = fixedPart<ifaddrmsg>(message);
    if (fixed == nullptr || fixed->ifa_family != AF_INET || fixed->ifa_prefixlen > 32)
        return;
    const Attributes attributes = attributesOf<ifaddrmsg>(message);
    Address address;
    address.link = static_cast<int>(fixed->ifa_index);
    address.peer = attributes.address(IFA_ADDRESS);
    address.own = attributes.address(IFA_LOCAL);
    if (address.own == 0)
        address.own = address.peer;
    if (address.own == 0)
        return;
    const std::uint32_t flags = attributes.number(IFA_FLAGS).value_or(fixed->ifa_flags);
    address.prefix = fixed->ifa_prefixlen;
    address.secondary = (flags & IFA_F_SECONDARY) != 0;
    address.outOfDate = (flags & IFA_F_DEPRECATED) != 0;
    address.reachesOut = fixed->ifa_scope < RT_SCOPE_HOST;
    state.addresses.push_back(address);
}

// A route with several next hops has them in a list of its own.
void addHops(const rtattr& list, DefaultRoute route, NetworkState& state) {
    auto left = static_cast<int>(RTA_PAYLOAD(&list));
    const auto* hop = static_cast<const rtnexthop*>(RTA_DATA(&list));
    while (left >= static_cast<int>(sizeof *hop) && hop->rtnh_len >= sizeof *hop && hop->rtnh_len <= left) {
        const Attributes attributes(RTNH_DATA(hop), hop->rtnh_len - RTNH_LENGTH(0));
        route.link = hop->rtnh_ifindex;
        route.gateway = attributes.address(RTA_GATEWAY);
        if ((hop->rtnh_flags & RTNH_F_DEAD) == 0)
            state.routes.push_back(route);
        left -= static_cast<int>(RTNH_ALIGN(hop->rtnh_len));
        hop = RTNH_NEXT(hop);
    }
}

bool isDefault(const rtmsg& route, const Attributes& attributes) {
    return route.rtm_family == AF_INET && route.rtm_dst_len == 0 && route.rtm_type == RTN_UNICAST &&
           (route.rtm_flags & (RTM_F_CLONED | RTNH_F_DEAD)) == 0 &&
           attributes.number(RTA_TABLE).value_or(route.rtm_table) == RT_TABLE_MAIN;
}

void addRoute(const nlmsghdr& message, NetworkState& state) {
    const auto* fixed = fixedPart<rtmsg>(message);
    if (fixed == nullptr)
        return;
    const Attributes attributes = attributesOf<rtmsg>(message);
    if (!isDefault(*fixed, attributes))
        return;
    DefaultRoute route;
    route.metric = attributes.number(RTA_PRIORITY).value_or(0);
    route.source = attributes.address(RTA_PREFSRC);
    if (const rtattr* hops = attributes.find(RTA_MULTIPATH, sizeof(rtnexthop)))
        return addHops(*hops, route, state);
    route.link = static_cast<int>(attributes.number(RTA_OIF).value_or(0));
    route.gateway = attributes.address(RTA_GATEWAY);
    state.routes.push_back(route);
}

void add(const nlmsghdr& message, NetworkState& state) {
    switch (message.nlmsg_type) {
    case RTM_NEWLINK:
        return addLink(message, state);
    case RTM_NEWADDR:
        return addAddress(message, state);
    case RTM_NEWROUTE:
        return addRoute(message, state);
    default: // of no interest, now or in a later kernel
        return;
    }
}

Answer failure(const nlmsghdr& message) {
    int error = -EPROTO;
    if (message.nlmsg_len >= NLMSG_LENGTH(sizeof error))
        std::memcpy(&error, NLMSG_DATA(&message), sizeof error);
    errno = error < 0 ? -error : EPROTO;
    return Answer::Failed;
}

} // namespace

Answer readAnswer(const void* data, std::size_t size, std::uint32_t sequence, NetworkState& state) {
    const auto* message = static_cast<const nlmsghdr*>(data);
    bool changed = false;
    for (; NLMSG_OK(message, size); message = NLMSG_NEXT(message, size)) {
        if (message->nlmsg_seq != sequence)
            continue;
        changed = changed || (message->nlmsg_flags & NLM_F_DUMP_INTR) != 0;
        if (message->nlmsg_type == NLMSG_ERROR)
            return failure(*message);
        if (message->nlmsg_type == NLMSG_DONE)
            return changed ? Answer::Changed : Answer::Done;
        add(*message, state);
    }
    return Answer::More;
}

} // namespace network

#include "appliance/network/network_reader.h"

#include "appliance/network/kernel_messages.h"

#include <array>
#include <cerrno>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>
#include <utility>

namespace network {
namespace {

constexpr int attempts = 5; // to read lists that change meanwhile
constexpr int maxDatagrams = 100'000;
constexpr timeval patience{1, 0};

int openSocket(unsigned groups) {
    const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    if (fd == -1)
        return -1;
    sockaddr_nl own{};
    own.nl_family = AF_NETLINK;
    own.nl_groups = groups;
    if (bind(fd, reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0)
        return fd;
    const int error = errno;
    close(fd);
    errno = error;
    return -1;
}

// Lets the kernel list only the main table's routes. A kernel that can't lists all; the reader of the messages picks
// the right ones in any case.
void askStrictly(int fd) {
    const int yes = 1;
    setsockopt(fd, SOL_NETLINK, NETLINK_GET_STRICT_CHK, &yes, sizeof yes);
}

struct Request {
    nlmsghdr header{};
    union {
        ifinfomsg link;
        ifaddrmsg address;
        rtmsg route;
    };
};

Request requestFor(int kind, std::uint32_t sequence) {
    Request request{};
    std::size_t size = sizeof(ifinfomsg);
    if (kind == RTM_GETLINK) {
        request.link = {};
    } else if (kind == RTM_GETADDR) {
        request.address = {};
        request.address.ifa_family = AF_INET;
        size = sizeof(ifaddrmsg);
    } else {
        request.route = {};
        request.route.rtm_family = AF_INET;
        request.route.rtm_table = RT_TABLE_MAIN;
        size = sizeof(rtmsg);
    }
    request.header.nlmsg_len = static_cast<std::uint32_t>(NLMSG_LENGTH(size));
    request.header.nlmsg_type = static_cast<std::uint16_t>(kind);
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.header.nlmsg_seq = sequence;
    return request;
}

// One datagram of the kernel; those of other senders are dropped. Its size, or -1 with errno.
template<std::size_t Size>
ssize_t receive(int fd, std::array<char, Size>& data, int flags) {
    while (true) {
        sockaddr_nl sender{};
        socklen_t length = sizeof sender;
        const ssize_t got =
            recvfrom(fd, data.data(), data.size(), flags, reinterpret_cast<sockaddr*>(&sender), &length);
        if (got >= 0 && sender.nl_pid != 0)
            continue;
        if (got >= 0 || errno != EINTR)
            return got;
    }
}

} // namespace

NetworkReader::~NetworkReader() {
    for (const int fd : {notices_, requests_})
        if (fd != -1)
            close(fd);
}

bool NetworkReader::open() {
    notices_ = openSocket(RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV4_ROUTE);
    requests_ = openSocket(0);
    if (notices_ == -1 || requests_ == -1)
        return false;
    askStrictly(requests_);
    return setsockopt(requests_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience) == 0;
}

bool NetworkReader::readList(int kind, NetworkState& state, bool& changed) {
    const Request request = requestFor(kind, ++sequence_);
    if (send(requests_, &request, request.header.nlmsg_len, 0) == -1)
        return false;
    alignas(nlmsghdr) std::array<char, 65536> data; // the kernel's datagrams are at most half of this
    for (int datagram = 0; datagram < maxDatagrams; ++datagram) {
        const ssize_t got = receive(requests_, data, 0);
        if (got == -1)
            return false;
        switch (readAnswer(data.data(), static_cast<std::size_t>(got), sequence_, state)) {
        case Answer::More:
            break;
        case Answer::Changed:
            changed = true;
            return true;
        case Answer::Done:
            return true;
        case Answer::Failed:
            return false;
        }
    }
    errno = EMSGSIZE;
    return false;
}

bool NetworkReader::readOnce(NetworkState& state, bool& changed) {
    // A network that never had a route has no table of routes.
    return readList(RTM_GETLINK, state, changed) && readList(RTM_GETADDR, state, changed) &&
           (readList(RTM_GETROUTE, state, changed) || errno == ENOENT);
}

bool NetworkReader::read(NetworkState& state) {
    for (int attempt = 0; attempt < attempts; ++attempt) {
        NetworkState found;
        bool changed = false;
        const bool readable = readOnce(found, changed);
        // The kernel could not queue its answer; the rest of it was dropped.
        if (!readable && errno != ENOBUFS)
            return false;
        if (!readable || changed)
            continue;
        state = std::move(found);
        return true;
    }
    errno = EAGAIN;
    return false;
}

bool NetworkReader::dropNotices() {
    bool lost = false;
    std::array<char, 4096> data; // a longer notice is cut; its content doesn't matter
    for (int datagram = 0; datagram < maxDatagrams; ++datagram)
        if (receive(notices_, data, MSG_DONTWAIT) == -1) {
            if (errno != ENOBUFS)
                break;
            lost = true;
        }
    return lost;
}

} // namespace network

#include "appliance/encoder/testing/udp_receiver.h"

#include <arpa/inet.h>
#include <chrono>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr std::uint16_t firstPort = 30000;
constexpr std::uint16_t lastPort = 40000;

} // namespace

UdpReceiver::UdpReceiver(std::uint16_t port, const char* group)
    : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(group == nullptr ? INADDR_LOOPBACK : INADDR_ANY);
    if (bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        close(fd_);
        fd_ = -1;
        return;
    }
    if (group == nullptr)
        return;
    ip_mreq membership{};
    inet_pton(AF_INET, group, &membership.imr_multiaddr);
    EXPECT_EQ(setsockopt(fd_, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership), 0);
}

UdpReceiver::~UdpReceiver() {
    if (fd_ >= 0)
        close(fd_);
}

std::string UdpReceiver::receive(int milliseconds) const {
    pollfd poller{fd_, POLLIN, 0};
    std::array<char, 2048> buffer{};
    if (poll(&poller, 1, milliseconds) <= 0)
        return {};
    const ssize_t count = recv(fd_, buffer.data(), buffer.size(), 0);
    return count > 0 ? std::string(buffer.data(), static_cast<std::size_t>(count)) : std::string();
}

bool UdpReceiver::fallsSilent() const {
    const auto bound = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!receive(300).empty()) {
        if (std::chrono::steady_clock::now() > bound)
            return false;
    }
    return true;
}

UdpPortPair::UdpPortPair() {
    for (std::uint16_t port = firstPort; port < lastPort && port_ == 0; port += 2) {
        receivers_[0].emplace(port);
        receivers_[1].emplace(static_cast<std::uint16_t>(port + 1));
        if (data().isBound() && control().isBound())
            port_ = port;
    }
    EXPECT_NE(port_, 0) << "no free ports";
}

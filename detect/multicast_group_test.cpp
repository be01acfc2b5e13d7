#include "detect/multicast_group.h"

#include "tests/fakes/network_namespace.h"

#include <arpa/inet.h>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using detect::joinMulticast;
using detect::leaveMulticast;

// Joining sends packets, so these tests run in a network namespace.
class MulticastGroup : public testing::Test {
protected:
    void SetUp() override {
        const std::string reason = enterNetworkNamespace();
        if (!reason.empty())
            GTEST_SKIP() << reason;
    }
};

void sendTo(const char* group, std::uint16_t port, const std::string& packet) {
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    inet_pton(AF_INET, group, &address.sin_addr);
    address.sin_port = htons(port);
    EXPECT_EQ(
        sendto(fd, packet.data(), packet.size(), 0, reinterpret_cast<sockaddr*>(&address), sizeof address),
        static_cast<ssize_t>(packet.size()))
        << std::strerror(errno);
    close(fd);
}

std::string received(int fd) {
    pollfd one{fd, POLLIN, 0};
    char packet[64];
    if (poll(&one, 1, 0) != 1)
        return "nothing";
    return {packet, static_cast<std::size_t>(recv(fd, packet, sizeof packet, 0))};
}

TEST_F(MulticastGroup, MemberReceivesWhatIsSentToTheGroup) {
    int fd = -1;
    ip_mreq membership{};
    ASSERT_TRUE(joinMulticast(fd, "239.192.0.9", 5000, membership));
    sendTo("239.192.0.9", 5000, "rtp");
    EXPECT_EQ(received(fd), "rtp");
    sendTo("239.192.0.9", 5001, "rtcp");
    EXPECT_EQ(received(fd), "nothing") << "another port";
    const int old = fd;
    leaveMulticast(fd, membership);
    EXPECT_EQ(fd, -1);
    EXPECT_EQ(fcntl(old, F_GETFD), -1) << "closed";
}

TEST_F(MulticastGroup, SocketIsNotHandedToPlayers) {
    int fd = -1;
    ip_mreq membership{};
    ASSERT_TRUE(joinMulticast(fd, "239.192.0.9", 5000, membership));
    EXPECT_TRUE(fcntl(fd, F_GETFD) & FD_CLOEXEC);
    leaveMulticast(fd, membership);
}

TEST_F(MulticastGroup, UnicastAddressIsRefusedWithAMessage) {
    int fd = -1;
    ip_mreq membership{};
    for (const char* address : {"127.0.0.1", "223.255.255.255", "10.0.0.1"}) {
        testing::internal::CaptureStdout();
        EXPECT_FALSE(joinMulticast(fd, address, 5000, membership)) << address;
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "IP-Address is not multicast");
        EXPECT_EQ(fd, -1);
    }
}

TEST_F(MulticastGroup, ReservedAddressesPass) {
    ip_mreq membership{};
    for (const char* address : {"224.0.0.0", "239.255.255.255", "240.0.0.1", "255.255.255.255"}) {
        int fd = -1;
        EXPECT_TRUE(joinMulticast(fd, address, 5000, membership)) << address;
        leaveMulticast(fd, membership);
    }
}

TEST_F(MulticastGroup, UnresolvableAddressIsRefusedSilently) {
    int fd = -1;
    ip_mreq membership{};
    testing::internal::CaptureStdout();
    for (const std::string& address : {std::string(), std::string("no such group!"), std::string(5000, 'a')})
        EXPECT_FALSE(joinMulticast(fd, address, 5000, membership)) << address;
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(fd, -1);
}

TEST_F(MulticastGroup, PortInUseIsIgnored) {
    const int other = socket(AF_INET, SOCK_DGRAM, 0); // does not share its port
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(5000);
    ASSERT_EQ(bind(other, reinterpret_cast<const sockaddr*>(&local), sizeof local), 0);
    int fd = -1;
    ip_mreq membership{};
    EXPECT_TRUE(joinMulticast(fd, "239.192.0.9", 5000, membership));
    sendTo("239.192.0.9", 5000, "rtp");
    EXPECT_EQ(received(fd), "nothing");
    leaveMulticast(fd, membership);
    close(other);
}

TEST_F(MulticastGroup, SocketReceivesOnlyItsOwnGroupOnASharedPort) {
    int first = -1;
    int second = -1;
    ip_mreq ofFirst{};
    ip_mreq ofSecond{};
    ASSERT_TRUE(joinMulticast(first, "239.192.0.9", 5000, ofFirst));
    ASSERT_TRUE(joinMulticast(second, "239.192.0.10", 5000, ofSecond));
    sendTo("239.192.0.9", 5000, "rtp");
    EXPECT_EQ(received(first), "rtp");
    EXPECT_EQ(received(second), "nothing");
    sendTo("239.192.0.10", 5000, "other");
    EXPECT_EQ(received(first), "nothing");
    EXPECT_EQ(received(second), "other");
    leaveMulticast(first, ofFirst);
    leaveMulticast(second, ofSecond);
}

TEST_F(MulticastGroup, LeavingWithoutASocketDoesNothing) {
    int fd = -1;
    const ip_mreq membership{};
    leaveMulticast(fd, membership);
    EXPECT_EQ(fd, -1);
}

} // namespace

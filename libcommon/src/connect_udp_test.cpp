#include "libcommon/src/network_fixture.h"

#include <libcommon/network.h>

#include <arpa/inet.h>
#include <cerrno>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

// A UDP socket bound to one loopback address, on a port of its own: a host of the test's network.
class Host {
public:
    explicit Host(const char* address) {
        sockaddr_storage local = {};
        socklen_t length = sizeof(sockaddr_in);
        auto& ipv4 = reinterpret_cast<sockaddr_in&>(local);
        auto& ipv6 = reinterpret_cast<sockaddr_in6&>(local);
        if (inet_pton(AF_INET, address, &ipv4.sin_addr) == 1) {
            ipv4.sin_family = AF_INET;
        } else {
            EXPECT_EQ(inet_pton(AF_INET6, address, &ipv6.sin6_addr), 1);
            ipv6.sin6_family = AF_INET6;
            length = sizeof ipv6;
        }
        fd_ = socket(local.ss_family, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr*>(&local), length), 0);
        family_ = local.ss_family;
    }
    ~Host() { close(fd_); }
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    // Sends to this machine over the loopback of its own family.
    void send(const std::string& text, unsigned short port) const {
        sockaddr_in to = {};
        to.sin_family = AF_INET;
        to.sin_port = htons(port);
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        sockaddr_in6 to6 = {};
        to6.sin6_family = AF_INET6;
        to6.sin6_port = htons(port);
        to6.sin6_addr = in6addr_loopback;
        const auto* target =
            family_ == AF_INET ? reinterpret_cast<sockaddr*>(&to) : reinterpret_cast<sockaddr*>(&to6);
        const socklen_t length = family_ == AF_INET ? sizeof to : sizeof to6;
        EXPECT_EQ(sendto(fd_, text.data(), text.size(), 0, target, length),
                  static_cast<ssize_t>(text.size()));
    }

private:
    int fd_ = -1;
    int family_ = AF_INET;
};

unsigned short portOf(int fd) {
    sockaddr_storage local = {};
    socklen_t length = sizeof local;
    EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&local), &length), 0);
    return ntohs(local.ss_family == AF_INET ? reinterpret_cast<sockaddr_in&>(local).sin_port
                                            : reinterpret_cast<sockaddr_in6&>(local).sin6_port);
}

// Everything that has arrived. Loopback delivers within sendto(), so nothing is still on its way.
std::vector<std::string> received(int fd) {
    std::vector<std::string> packets;
    char bytes[2048];
    for (;;) {
        const ssize_t count = recv(fd, bytes, sizeof bytes, MSG_DONTWAIT);
        if (count < 0)
            return packets;
        packets.emplace_back(bytes, static_cast<std::size_t>(count));
    }
}

using Packets = std::vector<std::string>;

class ConnectUDP : public NetworkTest {
protected:
    ~ConnectUDP() override {
        if (fd_ >= 0)
            close(fd_);
    }
    int opened(const std::string& host, bool fromHostOnly, unsigned short port = 0) {
        fd_ = connectUDP(host, port, fromHostOnly);
        return fd_;
    }

private:
    int fd_ = -1;
};

TEST_F(ConnectUDP, OnlyTheHostsPacketsArriveFromAnyPort) {
    const int fd = opened("127.0.0.1", true);
    ASSERT_GE(fd, 0);
    const Host encoder("127.0.0.1");
    const Host encodersOtherPort("127.0.0.1");
    const Host stranger("127.0.0.2");
    encoder.send("one", portOf(fd));
    stranger.send("two", portOf(fd));
    encodersOtherPort.send("three", portOf(fd));
    EXPECT_EQ(received(fd), (Packets{"one", "three"}));
}

TEST_F(ConnectUDP, AStrangersPacketDoesNotWakeTheReader) {
    const int fd = opened("127.0.0.1", true);
    const Host stranger("127.0.0.2");
    stranger.send("knock", portOf(fd));
    pollfd polled = {.fd = fd, .events = POLLIN, .revents = 0};
    EXPECT_EQ(poll(&polled, 1, 0), 0);
}

TEST_F(ConnectUDP, OnlyTheOtherHostsPacketsArrive) {
    const int fd = opened("127.0.0.2", true);
    const Host encoder("127.0.0.2");
    const Host stranger("127.0.0.1");
    stranger.send("one", portOf(fd));
    encoder.send("two", portOf(fd));
    EXPECT_EQ(received(fd), Packets{"two"});
}

TEST_F(ConnectUDP, WithoutTheRestrictionAllPacketsArrive) {
    const int fd = opened("127.0.0.1", false);
    const Host one("127.0.0.1");
    const Host other("127.0.0.2");
    one.send("one", portOf(fd));
    other.send("two", portOf(fd));
    EXPECT_EQ(received(fd), (Packets{"one", "two"}));
}

TEST_F(ConnectUDP, IPv6) {
    const int fd = opened("::1", true);
    ASSERT_GE(fd, 0);
    const Host encoder("::1");
    const Host stranger("127.0.0.1");
    stranger.send("one", portOf(fd));
    encoder.send("two", portOf(fd));
    EXPECT_EQ(received(fd), Packets{"two"});
}

TEST_F(ConnectUDP, AnIPv4MappedIPv6Address) {
    const int fd = opened("::ffff:127.0.0.2", true);
    ASSERT_GE(fd, 0);
    const Host encoder("127.0.0.2");
    const Host stranger("::1");
    stranger.send("one", portOf(fd));
    encoder.send("two", portOf(fd));
    EXPECT_EQ(received(fd), Packets{"two"});
}

TEST_F(ConnectUDP, AnIPv6NeighbourIsNotTakenForTheHost) {
    const int fd = opened("::2", true); // differs from ::1 in the last word only
    ASSERT_GE(fd, 0);
    const Host stranger("::1");
    stranger.send("one", portOf(fd));
    EXPECT_EQ(received(fd), Packets{});
}

TEST_F(ConnectUDP, AName) {
    const int fd = opened("localhost", true);
    ASSERT_GE(fd, 0);
    const Host encoder("127.0.0.1");
    const Host stranger("127.0.0.2");
    stranger.send("one", portOf(fd));
    encoder.send("two", portOf(fd));
    EXPECT_EQ(received(fd), Packets{"two"});
}

TEST_F(ConnectUDP, ThePortIsTheLocalOne) {
    unsigned short port = 0;
    {
        const int probe = connectUDP("127.0.0.1", 0, true);
        port = portOf(probe);
        close(probe);
    }
    EXPECT_EQ(portOf(opened("127.0.0.1", true, port)), port);
}

TEST_F(ConnectUDP, ATakenPortIsAFailureAndLogged) {
    const int first = connectUDP("127.0.0.1", 0, true);
    EXPECT_EQ(opened("127.0.0.1", true, portOf(first)), -1);
    EXPECT_EQ(errno, EADDRINUSE);
    EXPECT_NE(log().find("connectUDP() to \"127.0.0.1\""), std::string::npos) << log();
    close(first);
}

TEST_F(ConnectUDP, AnImpossibleHostIsAFailure) {
    EXPECT_EQ(opened("not a host", true), -1);
    EXPECT_EQ(errno, EHOSTUNREACH);
}

TEST_F(ConnectUDP, TheDescriptorIsAPlainOne) {
    const int fd = opened("127.0.0.1", true);
    EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
    const Host encoder("127.0.0.1");
    encoder.send("packet", portOf(fd));
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(fd, &readable);
    timeval limit = {.tv_sec = 5, .tv_usec = 0};
    EXPECT_EQ(select(fd + 1, &readable, nullptr, nullptr, &limit), 1);
    char bytes[2048];
    EXPECT_EQ(recv(fd, bytes, sizeof bytes, MSG_WAITALL), 6);
}

} // namespace

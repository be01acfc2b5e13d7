#include "appliance/gateway/serving/local_peer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace gateway {
namespace {

constexpr uid_t nobody = 65534;

// A listening socket of this machine.
class LocalPeer : public testing::Test {
protected:
    LocalPeer() : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address_;
        EXPECT_EQ(bind(listener_, reinterpret_cast<sockaddr*>(&address_), size), 0);
        EXPECT_EQ(listen(listener_, 8), 0);
        getsockname(listener_, reinterpret_cast<sockaddr*>(&address_), &size);
    }
    ~LocalPeer() override { close(listener_); }
    LocalPeer(const LocalPeer&) = delete;
    LocalPeer& operator=(const LocalPeer&) = delete;

    int connected() const {
        const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        return connect(fd, reinterpret_cast<const sockaddr*>(&address_), sizeof address_) == 0 ? fd : -1;
    }
    int connectedOverIpv6() const {
        sockaddr_in6 mapped{};
        mapped.sin6_family = AF_INET6;
        mapped.sin6_port = address_.sin_port;
        inet_pton(AF_INET6, "::ffff:127.0.0.1", &mapped.sin6_addr);
        const int fd = socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
        return connect(fd, reinterpret_cast<sockaddr*>(&mapped), sizeof mapped) == 0 ? fd : -1;
    }
    int connectedFromInterface() const {
        const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (setsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, "lo", sizeof "lo") != 0)
            return -1;
        return connect(fd, reinterpret_cast<const sockaddr*>(&address_), sizeof address_) == 0 ? fd : -1;
    }

    // Another user connects in that way: whether it may use the port, or nothing when it can't connect at all.
    std::optional<bool> strangerMay(const std::function<int()>& connect) const {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        const pid_t child = fork();
        if (child == 0) {
            if (setresgid(nobody, nobody, nobody) != 0 || setresuid(nobody, nobody, nobody) != 0 ||
                connect() < 0)
                _exit(1);
            char end = 0;
            close(ends[1]);
            _exit(read(ends[0], &end, 1) == 0 ? 0 : 1);
        }
        std::optional<bool> may;
        pollfd ready[] = {{listener_, POLLIN, 0}};
        constexpr int patienceMs = 5000;
        if (poll(ready, 1, patienceMs) == 1) {
            const int fd = accept(listener_, nullptr, nullptr);
            may = mayUse(fd);
            close(fd);
        }
        close(ends[0]);
        close(ends[1]);
        waitpid(child, nullptr, 0);
        return may;
    }

    int listener_;
    sockaddr_in address_{};
};

TEST_F(LocalPeer, IsThisUser) {
    const int client = connected();
    ASSERT_GE(client, 0);
    const int fd = accept(listener_, nullptr, nullptr);
    const std::optional<uid_t> user = userAtOtherEnd(fd);
    if (!user)
        GTEST_SKIP() << "this kernel does not tell whose a socket is (no INET_DIAG)";
    EXPECT_EQ(*user, geteuid());
    EXPECT_TRUE(mayUse(fd));
    close(fd);
    close(client);
}

TEST_F(LocalPeer, AnotherUserIsRefusedHoweverItConnects) {
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root, to act as another user";
    EXPECT_EQ(strangerMay([this] { return connected(); }), false);
    EXPECT_EQ(strangerMay([this] { return connectedOverIpv6(); }), false);
    // Old kernels let nobody else bind to an interface.
    EXPECT_NE(strangerMay([this] { return connectedFromInterface(); }), true);
}

TEST_F(LocalPeer, NoConnectionHasNoUser) {
    EXPECT_EQ(userAtOtherEnd(listener_), std::nullopt);
    EXPECT_EQ(userAtOtherEnd(-1), std::nullopt);
}

} // namespace
} // namespace gateway

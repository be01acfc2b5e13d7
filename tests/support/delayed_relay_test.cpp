// The delays and the counts of the relay.
#include "tests/support/delayed_relay.h"

#include "tests/support/scripted_server.h"

#include <arpa/inet.h>
#include <chrono>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace scripted {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto eachWay = 30ms;

class Client {
public:
    explicit Client(unsigned short port) : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }
    ~Client() { ::close(fd_); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    void say(const std::string& text) const {
        EXPECT_EQ(::send(fd_, text.data(), text.size(), MSG_NOSIGNAL), static_cast<ssize_t>(text.size()));
    }
    std::string hear(std::size_t length) const {
        std::string text(length, '\0');
        const ssize_t got = recv(fd_, text.data(), length, MSG_WAITALL);
        text.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
        return text;
    }

private:
    int fd_;
};

const Script echo{readRequest(), answer([](const std::string& request) { return request; }), startOver()};

TEST(DelayedRelay, ConnectionAndEachExchangeCostARoundTrip) {
    const Server server(echo);
    const DelayedRelay relay(0, server.port(), eachWay);
    const auto began = Clock::now();
    const Client client(relay.port());
    client.say("one\r\n\r\n");
    EXPECT_EQ(client.hear(7), "one\r\n\r\n");
    EXPECT_GE(Clock::now() - began, 4 * eachWay) << "the connection's and the exchange's";
    const auto second = Clock::now();
    client.say("two\r\n\r\n");
    EXPECT_EQ(client.hear(7), "two\r\n\r\n");
    EXPECT_GE(Clock::now() - second, 2 * eachWay);
    EXPECT_EQ(relay.connections(), 1);
    EXPECT_EQ(relay.exchanges(), 2);
}

TEST(DelayedRelay, RequestInPiecesIsOneExchange) {
    const Server server(echo);
    const DelayedRelay relay(0, server.port(), eachWay);
    const Client client(relay.port());
    client.say("in ");
    client.say("pieces\r\n\r\n");
    EXPECT_EQ(client.hear(13), "in pieces\r\n\r\n");
    EXPECT_EQ(relay.exchanges(), 1);
}

TEST(DelayedRelay, RequestBeforeACloseIsNoExchange) {
    const Server server(echo);
    const DelayedRelay relay(0, server.port(), 200ms);
    {
        const Client client(relay.port());
        client.say("one\r\n\r\n");
        EXPECT_EQ(client.hear(7), "one\r\n\r\n");
        client.say("goodbye\r\n\r\n");
    }
    EXPECT_TRUE(server.waitForRequests(2)) << "they come through";
    EXPECT_EQ(relay.exchanges(), 1);
}

TEST(DelayedRelay, ManyBytesArriveUnchanged) {
    const std::string bytes(8'000'000, 'x');
    const Server server({readRequest(), send(bytes), close()});
    const DelayedRelay relay(0, server.port(), eachWay);
    const Client client(relay.port());
    client.say("all of it\r\n\r\n");
    EXPECT_TRUE(client.hear(bytes.size()) == bytes);
    EXPECT_EQ(client.hear(1), "") << "the end comes through, too";
}

TEST(DelayedRelay, MissingServerEndsTheConnection) {
    const RefusedPort port;
    const DelayedRelay relay(0, port.port(), eachWay);
    const Client client(relay.port());
    EXPECT_EQ(client.hear(1), "");
    EXPECT_EQ(relay.connections(), 0);
}

} // namespace
} // namespace scripted

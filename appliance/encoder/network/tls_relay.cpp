#include "appliance/encoder/network/tls_relay.h"

#include <chrono>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr std::chrono::hours readTime(1); // one wait; the loop waits again
constexpr std::chrono::seconds writeTime(10);
constexpr std::size_t bufferBytes = 16 * 1024;

sockaddr_in addressOf(int fd, int (*name)(int, sockaddr*, socklen_t*)) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    name(fd, reinterpret_cast<sockaddr*>(&address), &size);
    return address;
}

// Two sockets of 127.0.0.1 that are connected to each other; {-1, -1} on failure. Not socketpair(): the library expects
// Internet addresses.
std::array<int, 2> connectedPair() {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int first = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int second = -1;
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        listen(listener, 1) == 0) {
        address = addressOf(listener, getsockname);
        if (connect(first, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
            second = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    }
    close(listener);
    const int on = 1;
    for (const int fd : {first, second})
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    // Another program could have connected first.
    if (second >= 0 && addressOf(second, getpeername).sin_port == addressOf(first, getsockname).sin_port)
        return {first, second};
    close(first);
    close(second);
    return {-1, -1};
}

} // namespace

TlsRelay::TlsRelay(Connection& connection) : connection_(connection), sockets_(connectedPair()) {
    if (fd() < 0)
        return;
    toSocket_ = std::thread(&TlsRelay::passToSocket, this);
    toPeer_ = std::thread(&TlsRelay::passToPeer, this);
}

TlsRelay::~TlsRelay() {
    if (sockets_[1] < 0)
        return;
    ::shutdown(sockets_[1], SHUT_RDWR);
    connection_.shutdown();
    await();
    closeFd();
    close(sockets_[1]);
}

void TlsRelay::closeFd() {
    if (sockets_[0] >= 0)
        close(std::exchange(sockets_[0], -1));
}

void TlsRelay::await() {
    for (std::thread* thread : {&toSocket_, &toPeer_}) {
        if (thread->joinable())
            thread->join();
    }
}

void TlsRelay::passToSocket() const {
    std::array<char, bufferBytes> buffer{};
    while (true) {
        const long count = connection_.read(buffer.data(), buffer.size(), in(readTime));
        if (count == Connection::timedOut)
            continue;
        if (count <= 0 ||
            send(sockets_[1], buffer.data(), static_cast<std::size_t>(count), MSG_NOSIGNAL) != count)
            break;
    }
    ::shutdown(sockets_[1], SHUT_RDWR);
}

void TlsRelay::passToPeer() const {
    std::array<char, bufferBytes> buffer{};
    while (true) {
        const ssize_t count = recv(sockets_[1], buffer.data(), buffer.size(), 0);
        if (count <= 0 ||
            !connection_.write({std::string_view(buffer.data(), static_cast<std::size_t>(count))},
                               in(writeTime)))
            break;
    }
    connection_.shutdown();
}

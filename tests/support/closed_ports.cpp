// RefusedPort and FullBacklog: ports to which no connection can be made.
#include "tests/support/scripted_server.h"

#include <arpa/inet.h>
#include <chrono>
#include <fstream>
#include <stdexcept>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace scripted {

namespace {

sockaddr_in loopback(unsigned short port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// A socket bound to `port`, or to a free port when `port` is 0.
int boundToLoopback(unsigned short& port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(port);
    socklen_t length = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (fd < 0 || bind(fd, generic, length) != 0 || getsockname(fd, generic, &length) != 0)
        throw std::runtime_error("no port");
    port = ntohs(address.sin_port);
    return fd;
}

// How many connections to the port are in SYN_SENT, by the kernel's own table.
int attemptsAt(unsigned short port) {
    constexpr int synSent = 2;
    std::ifstream table("/proc/net/tcp");
    std::string line;
    std::getline(table, line); // its heading
    int attempts = 0;
    while (std::getline(table, line)) {
        unsigned remotePort = 0;
        unsigned state = 0;
        if (std::sscanf(line.c_str(), " %*d: %*[0-9A-F]:%*x %*[0-9A-F]:%x %x", &remotePort, &state) == 2 &&
            remotePort == port && state == synSent)
            ++attempts;
    }
    return attempts;
}

bool waitForAttempts(unsigned short port, int wanted) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (attemptsAt(port) < wanted) {
        if (std::chrono::steady_clock::now() > limit)
            return false;
        std::this_thread::yield();
    }
    return true;
}

} // namespace

RefusedPort::RefusedPort() : descriptor_(boundToLoopback(port_)) {} // bound and never listening

RefusedPort::~RefusedPort() {
    ::close(descriptor_);
}

FullBacklog::FullBacklog(unsigned short port) : port_(port) {
    const int listener = boundToLoopback(port_);
    descriptors_.push_back(listener);
    if (listen(listener, 0) != 0)
        throw std::runtime_error("can't listen");
    // A backlog of 0 still takes one connection; the second attempt is the first one that is not answered.
    const sockaddr_in address = loopback(port_);
    for (int i = 0; i < 2; ++i) {
        const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        [[maybe_unused]] const int started =
            connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
        descriptors_.push_back(fd);
    }
    if (!waitForAttempts(port_, 1))
        throw std::runtime_error("the backlog does not fill");
}

FullBacklog::~FullBacklog() {
    for (const int fd : descriptors_)
        ::close(fd);
}

bool FullBacklog::waitForAttempt() const {
    return waitForAttempts(port_, 2); // our own one is there all the time
}

} // namespace scripted

#include "appliance/streams/datagrams.h"

#include <libcommon/log.h>

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace streams {
namespace {

constexpr std::size_t largestDatagram = 65536;
constexpr int wantedBuffer = 2 * 1024 * 1024;

bool resolve(const std::string& host, std::uint16_t port, sockaddr_in& address) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0)
        return false;
    std::memcpy(&address, found->ai_addr, sizeof address);
    address.sin_port = htons(port);
    freeaddrinfo(found);
    return true;
}

// Binds to the group's address, so that packets of another group on the same port are not received.
bool bindAndJoin(int socket, const sockaddr_in& address, const std::string& via) {
    const int yes = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    const bool multicast = IN_MULTICAST(ntohl(address.sin_addr.s_addr));
    sockaddr_in local = address;
    if (!multicast)
        local.sin_addr.s_addr = htonl(INADDR_ANY);
    if (bind(socket, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0)
        return false;
    ip_mreq membership{address.sin_addr, {htonl(INADDR_ANY)}};
    if (!via.empty())
        inet_pton(AF_INET, via.c_str(), &membership.imr_interface);
    return !multicast ||
           setsockopt(socket, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership) == 0;
}

int boundTo(std::uint16_t port) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(port);
    if (fd < 0 || bind(fd, reinterpret_cast<const sockaddr*>(&local), sizeof local) == 0)
        return fd;
    const int error = errno;
    close(fd);
    errno = error;
    return -1;
}

std::uint16_t portOf(int socket) {
    sockaddr_in local{};
    socklen_t length = sizeof local;
    return getsockname(socket, reinterpret_cast<sockaddr*>(&local), &length) == 0 ? ntohs(local.sin_port) : 0;
}

bool isFrom(const sockaddr_in& sender, const std::string& address) {
    char text[INET_ADDRSTRLEN];
    return address.empty() || address == inet_ntop(AF_INET, &sender.sin_addr, text, sizeof text);
}

} // namespace

SocketPair bindPair(std::uint16_t port) {
    constexpr int attempts = 64;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        SocketPair pair;
        pair.data = boundTo(port);
        pair.port = pair.data < 0 ? std::uint16_t{0} : portOf(pair.data);
        if (pair.data >= 0 && (port != 0 || pair.port % 2 == 0))
            pair.control = boundTo(static_cast<std::uint16_t>(pair.port + 1));
        if (pair.control >= 0) {
            widen(pair.data);
            return pair;
        }
        const int error = errno;
        if (pair.data >= 0)
            close(pair.data);
        errno = error;
        if (port != 0)
            break;
    }
    logmsg(3, "Can't receive on UDP ports %d and %d (errno=%d %s)", port, port + 1, errno,
           std::strerror(errno));
    return {};
}

int joinGroup(const std::string& group, std::uint16_t port, const std::string& via) {
    sockaddr_in address{};
    if (!resolve(group, port, address)) {
        logmsg(3, "No address for %s", group.c_str());
        errno = EADDRNOTAVAIL;
        return -1;
    }
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && bindAndJoin(fd, address, via)) {
        widen(fd);
        return fd;
    }
    const int error = errno;
    logmsg(3, "Can't receive %s port %d (errno=%d %s)", group.c_str(), port, error, std::strerror(error));
    if (fd >= 0)
        close(fd);
    errno = error;
    return -1;
}

void widen(int socket) {
    setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &wantedBuffer, sizeof wantedBuffer);
}

bool receiveWaiting(int socket, const std::string& from, const std::function<void(std::string_view)>& take) {
    static thread_local std::array<char, largestDatagram> bytes;
    constexpr int atOnce = 256; // then the caller checks its time limits and other sockets
    for (int i = 0; i < atOnce; ++i) {
        sockaddr_in sender{};
        socklen_t length = sizeof sender;
        const ssize_t got = recvfrom(socket, bytes.data(), bytes.size(), MSG_DONTWAIT,
                                     reinterpret_cast<sockaddr*>(&sender), &length);
        if (got < 0)
            return errno == EAGAIN || errno == EINTR || errno == ECONNREFUSED;
        if (isFrom(sender, from))
            take({bytes.data(), static_cast<std::size_t>(got)});
    }
    return true;
}

void receiveDatagrams(int socket, const std::function<void(std::string_view)>& take) {
    std::array<char, largestDatagram> bytes{};
    for (;;) {
        const ssize_t got = recv(socket, bytes.data(), bytes.size(), 0);
        if (got >= 0)
            take({bytes.data(), static_cast<std::size_t>(got)});
        else if (errno != EINTR && errno != EAGAIN && errno != ECONNREFUSED)
            return;
    }
}

} // namespace streams

// connectTCP and connectUDP.
#include "libcommon/src/host_filter.h"
#include "libcommon/src/network_wait.h"
#include "libcommon/src/resolver.h"

#include <libcommon/clock.h>
#include <libcommon/log.h>
#include <libcommon/network.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace network {

namespace {

// Closes and keeps errno.
void closeQuietly(int fd) {
    const int savedError = errno;
    close(fd);
    errno = savedError;
}

// The result of a connect under way, once the descriptor is writable.
bool isConnected(int fd) {
    int error = 0;
    socklen_t length = sizeof error;
    if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) != 0)
        return false;
    errno = error;
    return error == 0;
}

// A non-blocking connected socket, or -1 with errno.
int connectEndpoint(const Endpoint& endpoint, NetworkOperation& operation, std::int64_t until) {
    const int fd = socket(endpoint.address.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0)
        return -1;
    const auto* address = reinterpret_cast<const sockaddr*>(&endpoint.address);
    if (connect(fd, address, endpoint.length) != 0 && errno != EINPROGRESS) {
        closeQuietly(fd);
        return -1;
    }
    pollfd connecting[] = {{.fd = fd, .events = POLLOUT, .revents = 0}};
    if (operation.wait(connecting, until) == WaitEnd::Ready && isConnected(fd))
        return fd;
    closeQuietly(fd);
    return -1;
}

// Tries each address in turn, so that a dead one leaves its share of the time to the others.
int connectFirst(const std::vector<Endpoint>& endpoints, NetworkOperation& operation) {
    auto left = static_cast<std::int64_t>(endpoints.size());
    for (const Endpoint& endpoint : endpoints) {
        const std::int64_t now = gettimeusec();
        const std::int64_t share = (operation.deadline() - now) / left--;
        const int fd = connectEndpoint(endpoint, operation, now + share);
        if (fd >= 0 || errno == EINTR)
            return fd;
    }
    return -1;
}

bool setSocketOptions(int fd, bool blocking, int timeout) {
    const timeval limit = {.tv_sec = timeoutSeconds(timeout), .tv_usec = 0};
    const int flags = fcntl(fd, F_GETFL);
    return setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) == 0 &&
           setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) == 0 && flags >= 0 &&
           (!blocking || fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) == 0);
}

void logFailure(const char* function, const std::string& host, unsigned short port, const char* reason) {
    logmsg(6, "%s() to \"%s\" port %d failed: %s (errno=%d %s)", function, host.c_str(), port, reason, errno,
           std::strerror(errno));
}

// The addresses of `host`; none with errno, logged.
std::vector<Endpoint> endpointsOf(const char* function, const std::string& host, unsigned short port,
                                  NetworkOperation& operation) {
    Resolution resolution = resolve(host, port, operation);
    if (resolution.endpoints.empty()) {
        errno = resolution.error;
        if (errno != EINTR)
            logFailure(function, host, port, resolution.reason.c_str());
    }
    return std::move(resolution.endpoints);
}

// A UDP socket on all interfaces; for IPv6 one that takes IPv4 as well.
int bindUDP(sa_family_t family, unsigned short port, const std::vector<Endpoint>& allowed) {
    const int fd = socket(family, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    sockaddr_storage local = {};
    local.ss_family = family;
    socklen_t length = sizeof(sockaddr_in);
    if (family == AF_INET) {
        reinterpret_cast<sockaddr_in&>(local).sin_port = htons(port);
    } else {
        reinterpret_cast<sockaddr_in6&>(local).sin6_port = htons(port);
        length = sizeof(sockaddr_in6);
        const int off = 0;
        setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off);
    }
    // The filter comes before the bind: otherwise a packet of another host could arrive in between.
    if ((allowed.empty() || acceptOnlyFrom(fd, allowed)) &&
        bind(fd, reinterpret_cast<const sockaddr*>(&local), length) == 0)
        return fd;
    closeQuietly(fd);
    return -1;
}

bool isIPv6(const Endpoint& endpoint) {
    return endpoint.address.ss_family == AF_INET6;
}

} // namespace

} // namespace network

int connectTCP(const std::string& host, unsigned short port, bool blocking, int timeout) {
    network::NetworkOperation operation(network::deadlineAfter(timeout));
    const auto endpoints = network::endpointsOf("connectTCP", host, port, operation);
    if (endpoints.empty())
        return -1;
    const int fd = network::connectFirst(endpoints, operation);
    if (fd < 0) {
        if (errno != EINTR)
            network::logFailure("connectTCP", host, port, "no connection");
        return -1;
    }
    if (network::setSocketOptions(fd, blocking, timeout))
        return fd;
    network::closeQuietly(fd);
    return -1;
}

int connectUDP(const std::string& host, unsigned short port, bool fromHostOnly) {
    std::vector<network::Endpoint> allowed;
    if (fromHostOnly) {
        network::NetworkOperation operation(network::deadlineAfter(0));
        allowed = network::endpointsOf("connectUDP", host, 0, operation);
        if (allowed.empty())
            return -1;
    }
    const bool needsIPv6 = std::any_of(allowed.begin(), allowed.end(), network::isIPv6);
    int fd = network::bindUDP(needsIPv6 ? AF_INET6 : AF_INET, port, allowed);
    if (fd < 0 && needsIPv6 &&
        errno == EAFNOSUPPORT) // a kernel without IPv6: the host's IPv4 addresses are left
        fd = network::bindUDP(AF_INET, port, allowed);
    if (fd < 0)
        network::logFailure("connectUDP", host, port, "no socket");
    return fd;
}

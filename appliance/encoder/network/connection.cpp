#include "appliance/encoder/network/connection.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// The kernel buffers this much for a slow client. A larger buffer would give it pictures that are seconds old; with
// a smaller one a large picture needs several round trips.
constexpr int sendBufferBytes = 256 * 1024;

constexpr std::chrono::milliseconds peekPause(5);

int millisecondsUntil(Deadline deadline) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0)
        return 0;
    return static_cast<int>(std::min<long long>(left.count(), 3600 * 1000));
}

std::string numericAddress(const sockaddr_in& address) {
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &address.sin_addr, text.data(), text.size());
    return text.data();
}

} // namespace

Connection::Connection(int fd, ssl_ctx_st* tls) : fd_(fd) {
    const int on = 1;
    setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    setsockopt(fd_, SOL_SOCKET, SO_SNDBUF, &sendBufferBytes, sizeof sendBufferBytes);
    if (tls != nullptr) {
        tls_ = SSL_new(tls);
        SSL_set_fd(tls_, fd_);
        SSL_set_mode(tls_, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    }
}

Connection::~Connection() {
    if (tls_ != nullptr) {
        SSL_shutdown(tls_);
        SSL_free(tls_);
    }
    close(fd_);
}

bool Connection::waitFor(short events, Deadline deadline) const {
    pollfd poller{fd_, events, 0};
    int result = 0;
    do {
        result = poll(&poller, 1, millisecondsUntil(deadline));
    } while (result < 0 && errno == EINTR);
    return result > 0;
}

// After a failed TLS call: waits for what it needs; true when the call can be repeated.
bool Connection::waitForTls(int result, Deadline deadline) {
    switch (SSL_get_error(tls_, result)) {
    case SSL_ERROR_WANT_READ:
        return waitFor(POLLIN, deadline);
    case SSL_ERROR_WANT_WRITE:
        return waitFor(POLLOUT, deadline);
    default:
        ERR_clear_error();
        return false;
    }
}

bool Connection::handshake(Deadline deadline) {
    if (tls_ == nullptr)
        return true;
    while (true) {
        const int result = SSL_accept(tls_);
        if (result == 1)
            return true;
        if (!waitForTls(result, deadline))
            return false;
    }
}

long Connection::read(char* buffer, std::size_t size, Deadline deadline) {
    while (true) {
        if (tls_ != nullptr) {
            // The writers' lock, because a TLS session has one state for both directions.
            std::unique_lock lock(writeLock_);
            const int count = SSL_read(tls_, buffer, static_cast<int>(size));
            if (count > 0)
                return count;
            const int error = SSL_get_error(tls_, count);
            ERR_clear_error();
            lock.unlock();
            if (error == SSL_ERROR_ZERO_RETURN)
                return endOfStream;
            if (error != SSL_ERROR_WANT_READ && error != SSL_ERROR_WANT_WRITE)
                return failed;
            if (!waitFor(error == SSL_ERROR_WANT_READ ? POLLIN : POLLOUT, deadline))
                return timedOut;
            continue;
        }
        const ssize_t count = recv(fd_, buffer, size, 0);
        if (count >= 0)
            return count;
        if (errno == EINTR)
            continue;
        if (errno != EAGAIN && errno != EWOULDBLOCK)
            return failed;
        if (!waitFor(POLLIN, deadline))
            return timedOut;
    }
}

std::string Connection::peek(std::size_t limit, Deadline deadline, const Enough& enough) const {
    std::string bytes(limit, '\0');
    while (true) {
        const ssize_t count = recv(fd_, bytes.data(), limit, MSG_PEEK);
        const bool nothingYet = count < 0 && (errno == EAGAIN || errno == EINTR);
        const std::string_view seen(bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(0, count)));
        const bool tooFew = count > 0 && seen.size() < limit && !enough(seen) && !peerSendsNoMore();
        if ((!nothingYet && !tooFew) || in({}) >= deadline) {
            bytes.resize(seen.size());
            return bytes;
        }
        // Waiting for input would return at once because of the bytes that are already there.
        if (tooFew)
            sleepUntil(in(peekPause));
        else
            waitFor(POLLIN, deadline);
    }
}

bool Connection::write(std::initializer_list<std::string_view> pieces, Deadline deadline) {
    const std::lock_guard lock(writeLock_);
    for (std::string_view piece : pieces) {
        if (byteDelay_.count() == 0) {
            if (!writeSome(piece, deadline))
                return false;
            continue;
        }
        for (std::size_t i = 0; i < piece.size(); ++i) {
            sleepUntil(in(byteDelay_));
            if (!writeSome(piece.substr(i, 1), in(std::chrono::seconds(5))))
                return false;
        }
    }
    return true;
}

bool Connection::writeSome(std::string_view bytes, Deadline deadline) {
    return tls_ != nullptr ? writeTls(bytes, deadline) : writePlain(bytes, deadline);
}

bool Connection::writePlain(std::string_view bytes, Deadline deadline) {
    while (!bytes.empty()) {
        const ssize_t count = send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(count));
            continue;
        }
        if (errno == EINTR)
            continue;
        if ((errno != EAGAIN && errno != EWOULDBLOCK) || !waitFor(POLLOUT, deadline))
            return false;
    }
    return true;
}

bool Connection::writeTls(std::string_view bytes, Deadline deadline) {
    while (!bytes.empty()) {
        const int count = SSL_write(tls_, bytes.data(), static_cast<int>(bytes.size()));
        if (count > 0)
            bytes.remove_prefix(static_cast<std::size_t>(count));
        else if (!waitForTls(count, deadline))
            return false;
    }
    return true;
}

void Connection::waitForPeerToLeave(Deadline deadline) {
    std::array<char, 4096> scrap{};
    while (read(scrap.data(), scrap.size(), deadline) > 0) {
    }
}

bool Connection::peerSendsNoMore() const {
    pollfd poller{fd_, POLLRDHUP, 0};
    return poll(&poller, 1, 0) > 0;
}

bool Connection::peerHasLeft() const {
    pollfd poller{fd_, POLLIN | POLLRDHUP, 0};
    if (poll(&poller, 1, 0) <= 0)
        return false;
    if ((poller.revents & (POLLERR | POLLHUP)) != 0)
        return true;
    char byte = 0;
    return recv(fd_, &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0;
}

// A poll for no events still reports a broken connection.
void Connection::sleepUntil(Deadline end) const {
    waitFor(0, end);
}

void Connection::cut() {
    if (spared_)
        return;
    // connect() to no address resets a TCP connection. close() is not safe here: another thread uses the descriptor.
    sockaddr nowhere{};
    nowhere.sa_family = AF_UNSPEC;
    (void)connect(fd_, &nowhere, sizeof nowhere); // NOLINT(bugprone-unused-return-value): nothing can be done
}

void Connection::shutdown() {
    ::shutdown(fd_, SHUT_RDWR);
}

void Connection::abortOnClose() const {
    const linger reset{1, 0};
    setsockopt(fd_, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
}

bool Connection::peerIsLoopback() const {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    return getpeername(fd_, reinterpret_cast<sockaddr*>(&address), &size) == 0 &&
           ntohl(address.sin_addr.s_addr) >> 24 == 127;
}

std::string Connection::peerAddress() const {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    if (getpeername(fd_, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        return "?";
    return numericAddress(address);
}

std::uint16_t Connection::peerPort() const {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    return getpeername(fd_, reinterpret_cast<sockaddr*>(&address), &size) == 0 ? ntohs(address.sin_port)
                                                                               : std::uint16_t{0};
}

std::string Connection::localAddress() const {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    if (getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        return "?";
    return numericAddress(address);
}

// parseResponseHeader and writeFD: whole calls on descriptors that are mostly sockets, sometimes pipes.
#include "libcommon/src/header_text.h"
#include "libcommon/src/network_wait.h"

#include <libcommon/clock.h>
#include <libcommon/network.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace network {

namespace {

// The descriptor's own timeout (connectTCP sets it), as the limit of a whole call.
std::int64_t deadlineOf(int fd, int option) {
    timeval limit = {};
    socklen_t length = sizeof limit;
    const int savedError = errno;
    const bool limited =
        getsockopt(fd, SOL_SOCKET, option, &limit, &length) == 0 && (limit.tv_sec != 0 || limit.tv_usec != 0);
    errno = savedError;
    return limited ? gettimeusec() + limit.tv_sec * 1'000'000 + limit.tv_usec : deadlineAfter(0);
}

bool isPassing(int error) {
    return error == EINTR || error == EAGAIN;
}

// A descriptor that can't be peeked at is read byte by byte, so that the body is not read.
bool readByte(int fd, HeaderCollector& collector) {
    char byte = 0;
    const ssize_t count = read(fd, &byte, 1);
    if (count > 0)
        collector.take({&byte, 1});
    if (count == 0)
        errno = EPROTO;
    return count > 0 || (count < 0 && isPassing(errno));
}

// Reads a further piece of the header; false with errno when it can't be continued.
bool readSome(int fd, HeaderCollector& collector) {
    std::array<char, 2048> bytes;
    const ssize_t peeked = recv(fd, bytes.data(), bytes.size(), MSG_PEEK | MSG_DONTWAIT);
    if (peeked < 0 && (errno == ENOTSOCK || errno == EOPNOTSUPP))
        return readByte(fd, collector);
    if (peeked < 0)
        return isPassing(errno);
    if (peeked == 0) {
        errno = EPROTO; // closed before the end of the header
        return false;
    }
    const std::size_t taken = collector.take({bytes.data(), static_cast<std::size_t>(peeked)});
    std::size_t consumed = 0;
    while (consumed < taken) {
        const ssize_t count = recv(fd, bytes.data(), taken - consumed, MSG_DONTWAIT);
        if (count <= 0)
            return false;
        consumed += static_cast<std::size_t>(count);
    }
    return true;
}

// One write that never blocks: -1 with EAGAIN when nothing fits.
ssize_t writeSome(int fd, const char* bytes, std::size_t length) {
    const ssize_t sent = send(fd, bytes, length, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent >= 0 || errno != ENOTSOCK)
        return sent;
    // A pipe that is ready takes PIPE_BUF bytes without blocking; more bytes might block.
    return write(fd, bytes, std::min<std::size_t>(length, PIPE_BUF));
}

} // namespace

} // namespace network

int parseResponseHeader(int fd, ResponseHeader& header) {
    using State = network::HeaderCollector::State;
    header = {};
    network::NetworkOperation operation(network::deadlineOf(fd, SO_RCVTIMEO));
    network::HeaderCollector collector;
    while (collector.state() == State::Collecting)
        if (!operation.waitFor(fd, POLLIN) || !network::readSome(fd, collector))
            return -1;
    if (collector.state() == State::Complete && network::parseHeaderText(collector.text(), header))
        return 0;
    errno = collector.state() == State::TooLong ? EMSGSIZE : EPROTO;
    return -1;
}

int writeFD(int fd, const void* buffer, std::size_t length) {
    const char* bytes = static_cast<const char*>(buffer);
    network::NetworkOperation operation(network::deadlineOf(fd, SO_SNDTIMEO));
    while (length > 0) {
        if (!operation.waitFor(fd, POLLOUT))
            return -1;
        const ssize_t written = network::writeSome(fd, bytes, length);
        if (written < 0 && !network::isPassing(errno))
            return -1;
        if (written > 0) {
            bytes += written;
            length -= static_cast<std::size_t>(written);
        }
    }
    return 1;
}

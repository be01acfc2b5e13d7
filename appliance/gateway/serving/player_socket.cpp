#include "appliance/gateway/serving/player_socket.h"

#include <libcommon/clock.h>

#include <array>
#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace gateway {
namespace {

constexpr std::size_t readBytes = 16 * 1024;

} // namespace

PlayerSocket::PlayerSocket(EventLoop& loop, int fd, Received received, std::function<void()> over)
    : loop_(loop), fd_(fd), received_(std::move(received)), over_(std::move(over)),
      lastProgress_(gettimeusec()) {
    const int on = 1;
    setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    loop_.watch(fd_, EPOLLIN, [this](std::uint32_t events) { onReady(events); });
}

PlayerSocket::~PlayerSocket() {
    stop();
    close(fd_);
}

void PlayerSocket::stop() {
    if (!std::exchange(stopped_, true))
        loop_.forget(fd_);
}

void PlayerSocket::onReady(std::uint32_t events) {
    if ((events & EPOLLOUT) != 0) {
        writable_ = true;
        flush();
    }
    if (stopped_ || (events & ~std::uint32_t{EPOLLOUT}) == 0)
        return;
    if (!readSome())
        return over_();
    flush();
}

bool PlayerSocket::readSome() {
    std::array<char, readBytes> bytes{};
    const ssize_t count = recv(fd_, bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (count < 0)
        return errno == EAGAIN || errno == EINTR;
    if (count == 0)
        return false;
    lastProgress_ = gettimeusec();
    received_({bytes.data(), static_cast<std::size_t>(count)});
    return true;
}

void PlayerSocket::send(std::string_view bytes) {
    waiting_ += bytes;
}

void PlayerSocket::flush() {
    while (!stopped_ && writable_ && sent_ < waiting_.size()) {
        const ssize_t count =
            ::send(fd_, waiting_.data() + sent_, waiting_.size() - sent_, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0 && errno != EAGAIN)
            return over_();
        if (count < 0) {
            writable_ = false;
            loop_.change(fd_, EPOLLIN | EPOLLOUT);
            return;
        }
        lastProgress_ = gettimeusec();
        sent_ += static_cast<std::size_t>(count);
    }
    if (!stopped_ && sent_ == waiting_.size())
        sentAll();
}

void PlayerSocket::sentAll() {
    waiting_.clear();
    sent_ = 0;
    loop_.change(fd_, EPOLLIN);
    if (endAfterSending_)
        over_();
}

} // namespace gateway

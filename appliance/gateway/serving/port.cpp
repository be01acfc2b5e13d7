#include "appliance/gateway/serving/port.h"

#include "appliance/gateway/serving/local_peer.h"
#include "appliance/serving/bound_socket.h"

#include <libcommon/log.h>

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <unistd.h>

namespace gateway {
namespace {

constexpr int backlog = 64;
constexpr int acceptsAtOnce = 16;
constexpr std::chrono::milliseconds descriptorPause(200); // when no descriptors are free

} // namespace

Port::Port(EventLoop& loop, Cameras& cameras) : loop_(loop), cameras_(cameras) {}

Port::~Port() {
    connections_.clear();
    if (fd_ < 0)
        return;
    loop_.forget(fd_);
    close(fd_);
}

std::string Port::open(const std::string& address, std::uint16_t port) {
    std::string error;
    const int fd = boundSocket(address, port, error);
    if (fd < 0)
        return error;
    if (listen(fd, backlog) != 0) {
        error = systemError("cannot listen on port " + std::to_string(port) + " of " + address);
        close(fd);
        return error;
    }
    if (fd_ >= 0) {
        loop_.forget(fd_);
        close(fd_);
    }
    fd_ = fd;
    number_ = port;
    loop_.watch(fd_, EPOLLIN, [this](std::uint32_t /*events*/) { accept(); });
    return "";
}

void Port::accept() {
    for (int i = 0; i < acceptsAtOnce; ++i) {
        const int fd = accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (fd < 0 && (errno == EMFILE || errno == ENFILE)) {
            logmsg(3, "No descriptor is free for another connection");
            loop_.change(fd_, 0);
            loop_.after(descriptorPause, [this] { loop_.change(fd_, EPOLLIN); });
        }
        if (fd < 0)
            return;
        if (connections_.size() >= mostConnections) {
            logmsg(4, "There are %zu connections already: another one is turned away", connections_.size());
            close(fd);
            continue;
        }
        if (!mayUse(fd)) {
            close(fd);
            continue;
        }
        const std::uint64_t id = next_++;
        connections_[id] = std::make_unique<PlayerConnection>(
            loop_, cameras_, fd, [this, id] { loop_.later([this, id] { connections_.erase(id); }); });
    }
}

} // namespace gateway

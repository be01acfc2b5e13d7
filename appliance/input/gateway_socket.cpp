#include "appliance/input/gateway_socket.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace input {
namespace {

constexpr std::size_t readBytes = 64 * 1024;
constexpr std::size_t header = 4;

} // namespace

void GatewaySocket::send(FromInput channel, std::string_view bytes) const {
    const std::string message = framed(static_cast<int>(channel), bytes);
    std::string_view left = message;
    while (!left.empty()) {
        const ssize_t count = ::send(fd_, left.data(), left.size(), MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            throw GatewayGone{};
        left.remove_prefix(static_cast<std::size_t>(count));
    }
}

void GatewaySocket::read(char* bytes, std::size_t count) {
    while (count > 0) {
        if (used_ == received_.size()) {
            received_.resize(readBytes);
            const ssize_t more = recv(fd_, received_.data(), received_.size(), 0);
            received_.resize(static_cast<std::size_t>(std::max<ssize_t>(more, 0)));
            used_ = 0;
            if (more < 0 && errno == EINTR)
                continue;
            if (more <= 0)
                throw GatewayGone{};
        }
        const std::size_t part = std::min(count, received_.size() - used_);
        std::memcpy(bytes, received_.data() + used_, part);
        used_ += part;
        bytes += part;
        count -= part;
    }
}

std::pair<ToInput, std::string> GatewaySocket::receive() {
    std::array<char, header> head{};
    read(head.data(), head.size());
    std::string bytes(
        std::size_t{static_cast<std::uint8_t>(head[2])} << 8 | static_cast<std::uint8_t>(head[3]), '\0');
    read(bytes.data(), bytes.size());
    return {static_cast<ToInput>(head[1]), std::move(bytes)};
}

void GatewaySocket::waitUntil(std::chrono::steady_clock::time_point time) const {
    for (;;) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(time - std::chrono::steady_clock::now()).count();
        if (left <= 0)
            return;
        pollfd ready{fd_, 0, 0}; // only the end of the connection
        if (poll(&ready, 1, static_cast<int>(std::min<long long>(left, 1000))) > 0)
            throw GatewayGone{};
    }
}

} // namespace input

// For tests: a connection of the panel whose other end is a plain descriptor of the test.
#pragma once

#include "appliance/panel/web/connection.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <functional>
#include <gio/gio.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace panel {

// Runs the main loop until the condition holds, for at most 30 seconds.
inline bool runUntil(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    const SourceHandle tick = every(5, [] {});
    while (!condition() && std::chrono::steady_clock::now() < end)
        g_main_context_iteration(nullptr, TRUE);
    return condition();
}

// The client's end. It never blocks.
class ClientEnd {
public:
    explicit ClientEnd(int descriptor) : descriptor_(descriptor) { fcntl(descriptor_, F_SETFL, O_NONBLOCK); }
    ~ClientEnd() { close(); }
    ClientEnd(const ClientEnd&) = delete;
    ClientEnd& operator=(const ClientEnd&) = delete;

    void close() {
        if (descriptor_ >= 0)
            ::close(std::exchange(descriptor_, -1));
    }

    // False: the panel's end is closed.
    bool send(std::string_view text) const {
        return ::send(descriptor_, text.data(), text.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(text.size());
    }

    // Everything that has come.
    const std::string& received() {
        std::array<char, 65536> bytes{};
        ssize_t count = 0;
        while ((count = ::read(descriptor_, bytes.data(), bytes.size())) > 0)
            received_.append(bytes.data(), static_cast<std::size_t>(count));
        ended_ = ended_ || count == 0 || (count < 0 && errno != EAGAIN);
        return received_;
    }
    // The panel has ended its direction.
    bool ended() {
        received();
        return ended_;
    }

private:
    int descriptor_;
    std::string received_;
    bool ended_ = false;
};

struct StreamEnds {
    std::shared_ptr<Connection> connection;
    std::unique_ptr<ClientEnd> client;
};

inline StreamEnds makeStreamEnds(const ServerLimits& limits, const std::string& address = "192.0.2.1",
                                 std::int64_t now = g_get_monotonic_time()) {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
        return {};
    GObjectPointer<GSocket> socket(g_socket_new_from_fd(ends[0], nullptr));
    g_socket_set_blocking(socket.get(), FALSE);
    GObjectPointer<GIOStream> stream(
        G_IO_STREAM(g_socket_connection_factory_create_connection(socket.get())));
    return {std::make_shared<Connection>(std::move(stream), std::move(socket), address, limits, now),
            std::make_unique<ClientEnd>(ends[1])};
}

} // namespace panel

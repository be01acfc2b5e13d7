#include "appliance/encoder/tunnel.h"

#include "appliance/encoder/auth.h"

#include <algorithm>

namespace {

constexpr std::size_t maxTunnels = 256;
constexpr std::size_t maxWaiting = 64 * 1024; // bytes that the session has not read yet

} // namespace

bool Tunnel::push(std::string_view encoded) {
    const std::lock_guard lock(mutex_);
    for (const char c : encoded) {
        if (c == '\r' || c == '\n' || c == ' ')
            continue;
        encoded_ += c;
        if (encoded_.size() < 4)
            continue;
        // Each request is encoded by itself, so padding may stand in the middle.
        const std::string bytes = base64Decoded(encoded_);
        encoded_.clear();
        if (bytes.empty())
            return false;
        decoded_ += bytes;
    }
    changed_.notify_all();
    return !closed_ && decoded_.size() <= maxWaiting;
}

void Tunnel::close() {
    const std::lock_guard lock(mutex_);
    closed_ = true;
    changed_.notify_all();
}

long Tunnel::read(char* buffer, std::size_t size, Deadline deadline) {
    std::unique_lock lock(mutex_);
    if (!changed_.wait_until(lock, deadline, [this] { return closed_ || !decoded_.empty(); }))
        return Connection::timedOut;
    if (decoded_.empty())
        return Connection::endOfStream;
    const std::size_t count = std::min(size, decoded_.size());
    decoded_.copy(buffer, count);
    decoded_.erase(0, count);
    return static_cast<long>(count);
}

std::shared_ptr<Tunnel> Tunnels::open(const std::string& cookie) {
    const std::lock_guard lock(mutex_);
    if (tunnels_.size() >= maxTunnels || tunnels_.contains(cookie))
        return nullptr;
    return tunnels_[cookie] = std::make_shared<Tunnel>();
}

std::shared_ptr<Tunnel> Tunnels::find(const std::string& cookie) {
    const std::lock_guard lock(mutex_);
    const auto found = tunnels_.find(cookie);
    return found == tunnels_.end() ? nullptr : found->second;
}

void Tunnels::close(const std::string& cookie) {
    const std::lock_guard lock(mutex_);
    tunnels_.erase(cookie);
}

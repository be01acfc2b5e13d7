// The gateway's port: accepts connections and keeps them until they end. For the loop's thread.
#pragma once

#include "appliance/gateway/cameras/cameras.h"
#include "appliance/gateway/loop/event_loop.h"
#include "appliance/gateway/serving/player_connection.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace gateway {

class Port {
public:
    static constexpr std::size_t mostConnections = 512;

    // Loop and cameras must outlive it.
    Port(EventLoop& loop, Cameras& cameras);
    ~Port();
    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;

    // Listens on a port of an IPv4 address; 0 is any free port. Called again, it changes the port; present connections
    // stay. Returns "" or the reason of the failure, and then the port is as before.
    std::string open(const std::string& address, std::uint16_t port);
    std::uint16_t number() const { return number_; }

private:
    void accept();

    EventLoop& loop_;
    Cameras& cameras_;
    int fd_ = -1;
    std::uint16_t number_ = 0;
    std::uint64_t next_ = 1;
    std::map<std::uint64_t, std::unique_ptr<PlayerConnection>> connections_;
};

} // namespace gateway

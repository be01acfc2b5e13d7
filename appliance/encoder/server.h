// The encoder's ports and its connections: one thread accepts, each connection has a thread of its own, and
// there are never more of them than the options allow.
#pragma once

#include "appliance/encoder/connection.h"
#include "appliance/encoder/device.h"
#include "appliance/encoder/http_session.h"
#include "appliance/encoder/tls.h"

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

class Server {
public:
    // The device must outlive the server.
    explicit Server(Device& device);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // Opens the ports and begins to serve. Gives an error text, or an empty one. Once.
    std::string start();

    // The port in use; 0 when that role is not served.
    std::uint16_t port(PortRole role) const;

    // Ends every connection and waits for the threads. The destructor does it, too.
    void stop();

private:
    struct Door {
        PortRole role;
        int fd;
        std::uint16_t port;
        bool open;
    };

    std::string addDoor(PortRole role, std::uint16_t port);
    void acceptLoop();
    void applyRefusal();
    void refuseOrAccept(const FaultSet& faults);
    void admit(const Door& door);
    void serve(const std::shared_ptr<Connection>& connection, std::uint64_t number, PortRole role);
    void wake() const;

    Device& device_;
    TlsContext tls_;
    std::vector<Door> doors_; // after start() of the accepting thread alone
    int wakeFd_ = -1;
    std::thread acceptThread_;

    std::mutex mutex_; // guards all below
    std::condition_variable changed_;
    std::set<std::shared_ptr<Connection>> connections_;
    std::uint64_t nextNumber_ = 1;
    std::size_t threads_ = 0;
    bool refusing_ = false;       // wanted
    bool refusalApplied_ = false; // done
    bool stopping_ = false;
};

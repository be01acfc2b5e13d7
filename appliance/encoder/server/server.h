// The encoder's ports and connections. One thread accepts; each connection is served on its own thread, up to the
// options' limit. The HTTP port serves RTSP as well: decoders know one address and port of an encoder.
#pragma once

#include "appliance/encoder/device/device.h"
#include "appliance/encoder/http/http_session.h"
#include "appliance/encoder/network/connection.h"
#include "appliance/encoder/network/tls.h"
#include "appliance/encoder/onvif/onvif_facts.h"
#include "appliance/encoder/onvif/probe_responder.h"
#include "appliance/encoder/rtsp/rtsp_server.h"

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

    // Opens the ports and begins to serve. Returns an error text, or "". Call it once.
    std::string start();

    // The port number; 0 if the port does not exist.
    std::uint16_t port(PortRole role) const;

    // Ends every connection and waits for the threads. The destructor calls it too.
    void stop();

private:
    struct Door {
        PortRole role;
        int fd;
        std::uint16_t port;
        bool open;
    };

    std::string openDoors();
    std::string startOnvif();
    std::string addDoor(PortRole role, std::uint16_t port);
    void acceptLoop();
    void applyRefusal();
    void refuseOrAccept(const FaultSet& faults);
    void admit(const Door& door);
    void serve(const std::shared_ptr<Connection>& connection, std::uint64_t number, PortRole role);
    void serveConnection(Connection& connection, std::uint64_t number, PortRole role);
    void serveHttp(Connection& connection, std::uint64_t number, PortRole role);
    void wake() const;

    Device& device_;
    std::unique_ptr<RtspServer> rtsp_;  // null if no kind of RTSP is offered
    std::unique_ptr<OnvifFacts> onvif_; // null without --onvif
    std::unique_ptr<ProbeResponder> probes_;
    TlsContext tls_;
    std::vector<Door> doors_; // used only by the accepting thread once it runs
    int wakeFd_ = -1;
    std::thread acceptThread_;

    std::mutex mutex_; // guards all below
    std::condition_variable changed_;
    std::set<std::shared_ptr<Connection>> connections_;
    std::uint64_t nextNumber_ = 1;
    std::size_t threads_ = 0;
    bool refusing_ = false;       // the fault is active
    bool refusalApplied_ = false; // the ports refuse connections
    bool stopping_ = false;
};

// The panel's HTTP server.
//
// It takes connections, checks and bounds what comes in, finds the route, and answers. Built on libsoup: this library
// reads requests and writes answers. Everything before it is in Gate (the bytes of a request) and Connections (how many,
// and for how long). TLS comes from GIO. Main loop's thread only.
#pragma once

#include "appliance/panel/web/event_streams.h"
#include "appliance/panel/web/router.h"
#include "appliance/panel/web/visitor.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace panel {

struct ServerLimits {
    std::size_t connections = 512;        // in all
    std::size_t strangers = 128;          // connections without a log-in, in all
    std::size_t strangersOfAddress = 48;  // and from one address
    std::size_t headerBytes = 16 * 1024;
    unsigned headerSeconds = 10;          // from the first byte, or of a new connection, to the end of the header
    unsigned bodySeconds = 20;
    unsigned idleSeconds = 60;            // between two requests
    unsigned answerSeconds = 30;          // that an answer may stand still because the client does not read
};

struct ServerOptions {
    std::string address = "127.0.0.1"; // numeric
    std::uint16_t port = 8088;         // 0: any free port
    std::vector<std::string> hosts;    // names that a Host header may have beside the address itself and localhost
    std::string certificate;           // PEM file; "": no TLS
    std::string key;                   // PEM file
    ServerLimits limits;
};

class Server {
public:
    Server(ServerOptions options, const Router& router, EventStreams& streams, Identify identify);
    ~Server(); // ends all connections
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // Listens. Throws Refused with the reason.
    void start();
    std::uint16_t port() const; // after start()
    bool secure() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace panel

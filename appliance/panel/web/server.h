// The panel's HTTP server.
//
// It takes connections, bounds what comes in, checks where a request comes from and who sends it, finds the route, and
// answers. libsoup reads the requests and writes the answers; see gate.h and connection.h for what is around it. TLS is
// GIO's. Main loop's thread only.
#pragma once

#include "appliance/panel/web/event_streams.h"
#include "appliance/panel/web/router.h"
#include "appliance/panel/web/server_limits.h"
#include "appliance/panel/web/visitor.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace panel {

struct ServerOptions {
    std::string address = "127.0.0.1"; // numeric
    std::uint16_t port = 8088;         // 0: any free port
    std::vector<std::string>
        hosts;               // names that a Host header may have, beside the address itself and localhost
    std::string certificate; // PEM file; "": no TLS
    std::string key;         // PEM file
    ServerLimits limits;
};

class Server {
public:
    // The router, the streams and what `identify` uses outlive the server.
    Server(ServerOptions options, const Router& router, EventStreams& streams, Identify identify);
    ~Server(); // ends all connections
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // Listens. Throws std::runtime_error with the reason.
    void start();
    std::uint16_t port() const; // after start()
    bool isSecure() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace panel

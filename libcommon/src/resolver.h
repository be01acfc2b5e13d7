// Host names to addresses, bounded in time and interruptible.
//
// A numeric address needs no look-up. A name is looked up by a detached thread, because getaddrinfo can neither be
// interrupted nor given a time limit; an abandoned look-up ends by itself later and uses only its own data.
#pragma once

#include "libcommon/src/network_wait.h"

#include <string>
#include <sys/socket.h>
#include <vector>

namespace network {

struct Endpoint {
    sockaddr_storage address;
    socklen_t length;
};

struct Resolution {
    std::vector<Endpoint> endpoints; // never empty on success, in the resolver's order of preference
    int error = 0;        // errno: EINTR, ETIMEDOUT, EHOSTUNREACH (no such name), EAGAIN (too many look-ups)
    std::string reason;   // the same as readable text
    bool numeric = false; // the host was an address, nothing was looked up
};

Resolution resolve(const std::string& host, unsigned short port, NetworkOperation& operation);

// The endpoint's address without its port, as text.
std::string addressText(const Endpoint& endpoint);

} // namespace network

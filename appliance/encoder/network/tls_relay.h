// A plain socket for a connection under TLS: all bytes are passed on in both directions. The RTSP library needs it,
// because it reads and writes the socket itself.
#pragma once

#include "appliance/encoder/network/connection.h"

#include <array>
#include <thread>

class TlsRelay {
public:
    // The connection must outlive it and have completed its handshake. See fd().
    explicit TlsRelay(Connection& connection);
    // Ends the connection.
    ~TlsRelay();
    TlsRelay(const TlsRelay&) = delete;
    TlsRelay& operator=(const TlsRelay&) = delete;

    // The plain socket; -1 if there is none. The user takes a copy and then calls closeFd(), so that closing the copy
    // ends the relay.
    int fd() const { return sockets_[0]; }
    void closeFd();

    // Waits until the peer has left or the copy of the socket was closed.
    void await();

private:
    void passToSocket() const;
    void passToPeer() const;

    Connection& connection_;
    std::array<int, 2> sockets_; // the plain socket, and the relay's end of it; -1: none or closed
    std::thread toSocket_;
    std::thread toPeer_;
};

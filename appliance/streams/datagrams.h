// Receiving datagrams.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace streams {

// Opens a socket that receives the datagrams to the group and port, or, for a host that is not a multicast group, those
// to this machine. `via`: numeric address of the own interface where the group is expected; "": where the routes lead.
// Returns -1 with errno and a log line on failure.
int joinGroup(const std::string& group, std::uint16_t port, const std::string& via = "");

// A pair of sockets for RTP and RTCP, on that port and the next one. Port 0: on any even port. The
// sockets are -1, with errno and a log line, on failure.
struct SocketPair {
    int data = -1;
    int control = -1;
    std::uint16_t port = 0;
};
SocketPair bindPair(std::uint16_t port);

// Enlarges the receive buffer as far as the system allows: a key picture is a burst of packets.
void widen(int socket);

// Receives what has arrived, without waiting. `from`: only datagrams from that numeric address; "": all. False
// when the socket is broken.
bool receiveWaiting(int socket, const std::string& from, const std::function<void(std::string_view)>& take);

// Receives until the socket breaks. `take` gets each datagram, valid during the call.
void receiveDatagrams(int socket, const std::function<void(std::string_view)>& take);

} // namespace streams

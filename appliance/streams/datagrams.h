// Receiving datagrams.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace streams {

// A socket that receives what is sent to the group and port; a host that is no multicast group stands for
// this machine. -1 with errno and a log line.
int joinGroup(const std::string& group, std::uint16_t port);

// A pair of sockets on an even port and the next, for RTP and RTCP: on that port, or, for 0, on any. -1 with
// errno and a log line.
struct SocketPair {
    int data = -1;
    int control = -1;
    std::uint16_t port = 0;
};
SocketPair bindPair(std::uint16_t port);

// Makes room for a key picture's burst of packets; as much as the system allows.
void widen(int socket);

// Receives what is there, without waiting. `from` unless empty: only what comes from that numeric address.
// False when the socket is broken.
bool receiveWaiting(int socket, const std::string& from, const std::function<void(std::string_view)>& take);

// Receives for ever; returns when the socket is broken. `take` gets each datagram, valid during the call.
void receiveDatagrams(int socket, const std::function<void(std::string_view)>& take);

} // namespace streams

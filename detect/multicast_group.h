// Membership in a multicast group, for as long as a probe listens to it. Main thread.
#pragma once

#include <cstdint>
#include <netinet/in.h>
#include <string>

namespace detect {

// Joins the group on the port, on any interface. False: the address can't be resolved or is not multicast, or no socket
// could be made; `socket` is unchanged. A name is resolved without a time limit.
bool joinMulticast(int& socket, const std::string& group, std::uint16_t port, ip_mreq& membership);

// Leaves the group, closes the socket and sets it to -1. Does nothing for a socket that is -1.
void leaveMulticast(int& socket, const ip_mreq& membership);

} // namespace detect

// Receiving only from one host.
//
// A connected UDP socket would filter by host and port, but a media server may send from any port. So the
// kernel filters by source address alone (a classic BPF program on the socket), which keeps the descriptor a
// plain one for recv() and select(): a packet from elsewhere does not even wake its reader.
#pragma once

#include "libcommon/src/resolver.h"

#include <vector>

namespace network {

// From now on the datagram socket `fd` receives only packets from one of `hosts` (not empty), from any port. False
// with errno.
bool acceptOnlyFrom(int fd, const std::vector<Endpoint>& hosts);

} // namespace network

#include "detect/multicast_group.h"

#include "process/trace_output.h"
#include "recorder/recorder.h"

#include <cstring>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

namespace detect {
namespace {

bool resolve(const std::string& name, in_addr& address) {
    const hostent* host = gethostbyname(name.c_str()); // NOLINT(concurrency-mt-unsafe): one thread asks
    if (host == nullptr || host->h_addrtype != AF_INET)
        return false;
    std::memcpy(&address, host->h_addr_list[0], sizeof address);
    return true;
}

// kept: the reserved addresses from 240 on pass, too
bool isMulticast(in_addr address) {
    return (ntohl(address.s_addr) >> 29) == 7;
}

// A player or another program may listen to another group on the same port. Both can use the port, and this socket
// receives only the packets of its own group.
void shareThePort(int fd) {
    const int yes = 1;
    const int no = 0;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    setsockopt(fd, IPPROTO_IP, IP_MULTICAST_ALL, &no, sizeof no);
}

bool join(int& socket, const std::string& group, std::uint16_t port, ip_mreq& membership) {
    in_addr address{};
    if (!resolve(group, address))
        return false;
    if (!isMulticast(address)) {
        printTrace("IP-Address is not multicast");
        return false;
    }
    membership.imr_multiaddr = address;
    membership.imr_interface.s_addr = htonl(INADDR_ANY);
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd == -1)
        return false;
    shareThePort(fd);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_addr.s_addr = htonl(INADDR_ANY);
    local.sin_port = htons(port);
    // kept: both results are ignored; after a failure no packet comes, and the probe ends with its timeout
    static_cast<void>(bind(fd, reinterpret_cast<const sockaddr*>(&local), sizeof local));
    static_cast<void>(setsockopt(fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership));
    socket = fd;
    return true;
}

} // namespace

bool joinMulticast(int& socket, const std::string& group, std::uint16_t port, ip_mreq& membership) {
    return recorder::outcome("join", [&] { return join(socket, group, port, membership) ? 1 : 0; }) != 0;
}

void leaveMulticast(int& socket, const ip_mreq& membership) {
    if (socket == -1)
        return;
    setsockopt(socket, IPPROTO_IP, IP_DROP_MEMBERSHIP, &membership, sizeof membership);
    close(socket);
    socket = -1;
}

} // namespace detect

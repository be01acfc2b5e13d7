#include "appliance/encoder/network_namespace.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>

#include <net/if.h>
#include <net/route.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

void setAddress(sockaddr& where, const char* text) {
    auto* address = reinterpret_cast<sockaddr_in*>(&where);
    address->sin_family = AF_INET;
    inet_pton(AF_INET, text, &address->sin_addr);
}

bool openLoopback(int fd) {
    ifreq request{};
    std::strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP | IFF_LOOPBACK | IFF_MULTICAST;
    if (ioctl(fd, SIOCSIFFLAGS, &request) != 0)
        return false;
    rtentry route{};
    std::string device = "lo";
    setAddress(route.rt_dst, "224.0.0.0");
    setAddress(route.rt_genmask, "240.0.0.0");
    route.rt_flags = RTF_UP;
    route.rt_dev = device.data();
    return ioctl(fd, SIOCADDRT, &route) == 0;
}

// Without this a user namespace's root may do nothing that needs a group or user of its own.
void writeMap(const char* file, unsigned id) {
    const std::string line = "0 " + std::to_string(id) + " 1";
    const int fd = open(file, O_WRONLY | O_CLOEXEC);
    [[maybe_unused]] const ssize_t written = write(fd, line.data(), line.size());
    close(fd);
}

} // namespace

std::string enterOwnNetwork() {
    const unsigned user = getuid();
    if (unshare(CLONE_NEWNET) != 0) {
        if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
            return std::string("no network namespace can be made here: ") + std::strerror(errno);
        writeMap("/proc/self/uid_map", user);
    }
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool open = openLoopback(fd);
    std::string reason =
        open ? "" : std::string("the loopback interface cannot be set up: ") + std::strerror(errno);
    close(fd);
    return reason;
}

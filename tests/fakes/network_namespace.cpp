#include "tests/fakes/network_namespace.h"

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

std::string because(const char* what) {
    return std::string("no network namespace of its own: ") + what + ": " + std::strerror(errno);
}

bool writeFile(const char* file, const std::string& text) {
    const int fd = open(file, O_WRONLY | O_CLOEXEC);
    if (fd == -1)
        return false;
    const bool written = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    close(fd);
    return written;
}

// A user namespace makes an ordinary user root inside it, who may create a network namespace.
std::string enterAsUser() {
    const unsigned uid = getuid();
    const unsigned gid = getgid();
    if (unshare(CLONE_NEWUSER | CLONE_NEWNET) == -1)
        return because("unshare");
    if (!writeFile("/proc/self/setgroups", "deny") ||
        !writeFile("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1") ||
        !writeFile("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1"))
        return because("user map");
    return "";
}

bool raiseLoopback(int fd) {
    ifreq request{};
    std::strcpy(request.ifr_name, "lo");
    if (ioctl(fd, SIOCGIFFLAGS, &request) == -1)
        return false;
    request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP | IFF_MULTICAST);
    return ioctl(fd, SIOCSIFFLAGS, &request) != -1;
}

void setAddress(sockaddr& where, const char* address) {
    sockaddr_in in{};
    in.sin_family = AF_INET;
    inet_pton(AF_INET, address, &in.sin_addr);
    std::memcpy(&where, &in, sizeof in);
}

bool routeMulticast(int fd) {
    char device[] = "lo";
    rtentry route{};
    setAddress(route.rt_dst, "224.0.0.0");
    setAddress(route.rt_genmask, "240.0.0.0");
    setAddress(route.rt_gateway, "0.0.0.0");
    route.rt_flags = RTF_UP;
    route.rt_dev = device;
    return ioctl(fd, SIOCADDRT, &route) != -1;
}

} // namespace

std::string enterNetworkNamespace() {
    if (unshare(CLONE_NEWNET) == -1)
        if (std::string reason = enterAsUser(); !reason.empty())
            return reason;
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd == -1)
        return because("socket");
    std::string reason;
    if (!raiseLoopback(fd))
        reason = because("lo");
    else if (!routeMulticast(fd))
        reason = because("multicast route");
    close(fd);
    return reason;
}

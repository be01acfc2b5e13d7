#include "appliance/serving/bound_socket.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

std::string systemError(const std::string& what) {
    return what + ": " + std::strerror(errno);
}

int boundSocket(const std::string& address, std::uint16_t& port, std::string& error) {
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(port);
    if (inet_pton(AF_INET, address.c_str(), &local.sin_addr) != 1) {
        error = "'" + address + "' is not an IPv4 address";
        return -1;
    }
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const int on = 1;
    socklen_t size = sizeof local;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&local), size) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr*>(&local), &size) != 0) {
        error = systemError("cannot use port " + std::to_string(port) + " of " + address);
        close(fd);
        return -1;
    }
    port = ntohs(local.sin_port);
    return fd;
}

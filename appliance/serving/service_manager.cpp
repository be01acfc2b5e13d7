#include "appliance/serving/service_manager.h"

#include <libcommon/log.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

// A path, or an abstract name that begins with @. Returns the address's length; 0: the name can't be one.
socklen_t readAddress(std::string_view name, sockaddr_un& address) {
    if (name.size() < 2 || name.size() >= sizeof address.sun_path || (name[0] != '/' && name[0] != '@'))
        return 0;
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, name.data(), name.size());
    if (name[0] == '@')
        address.sun_path[0] = '\0';
    return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
}

bool sendTo(const sockaddr_un& address, socklen_t length, const std::string& state) {
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return false;
    const ssize_t sent = sendto(fd, state.data(), state.size(), MSG_NOSIGNAL,
                                reinterpret_cast<const sockaddr*>(&address), length);
    const int error = errno;
    close(fd);
    errno = error;
    return sent == static_cast<ssize_t>(state.size());
}

} // namespace

bool tellServiceManager(const std::string& state) {
    const char* name = std::getenv("NOTIFY_SOCKET");
    if (name == nullptr)
        return true;
    sockaddr_un address{};
    const socklen_t length = readAddress(name, address);
    errno = EINVAL;
    if (length != 0 && sendTo(address, length, state))
        return true;
    logmsg(3, "The service manager can't be told \"%s\" (errno=%d %s)", state.c_str(), errno,
           std::strerror(errno));
    return false;
}

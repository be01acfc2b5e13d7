#include "appliance/screen/monitor/hotplug.h"

#include <libcommon/log.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <drm.h>
#include <linux/netlink.h>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace screen {
namespace {

constexpr unsigned kernelsGroup = 1; // the second one is that of udev

// A message is a list of texts, each with a zero at its end.
bool isAboutDisplays(std::string_view message) {
    using namespace std::string_view_literals;
    return message.find("\0SUBSYSTEM=drm\0"sv) != std::string_view::npos;
}

} // namespace

Hotplug::Hotplug()
    : socket_(socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_KOBJECT_UEVENT)) {
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = kernelsGroup;
    if (socket_ < 0 || bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        logmsg(4, "The kernel does not tell when a display is plugged in (errno=%d %s)", errno,
               std::strerror(errno));
}

Hotplug::~Hotplug() {
    if (socket_ >= 0)
        close(socket_);
}

bool Hotplug::happened() {
    bool found = false;
    std::array<char, 8192> message{};
    // Not more than that at a time: a machine that floods us must not keep the picture from moving.
    for (int i = 0; i < 1000; ++i) {
        const ssize_t size = recv(socket_, message.data(), message.size(), 0);
        if (size < 0 && errno == ENOBUFS) {
            found = true; // messages were lost
            continue;
        }
        if (size <= 0)
            break;
        found = found || isAboutDisplays({message.data(), static_cast<std::size_t>(size)});
    }
    return found;
}

void probeDisplays(int card) {
    std::array<std::uint32_t, 32> connectors{};
    drm_mode_card_res resources{};
    resources.connector_id_ptr = reinterpret_cast<std::uintptr_t>(connectors.data());
    resources.count_connectors = connectors.size();
    if (card < 0 || ioctl(card, DRM_IOCTL_MODE_GETRESOURCES, &resources) != 0)
        return;
    // With more connectors than that the kernel fills in none of them.
    const std::size_t count =
        resources.count_connectors <= connectors.size() ? resources.count_connectors : 0;
    for (std::size_t i = 0; i < count; ++i) {
        drm_mode_get_connector connector{}; // without space for modes: this asks for a probe
        connector.connector_id = connectors[i];
        if (ioctl(card, DRM_IOCTL_MODE_GETCONNECTOR, &connector) != 0)
            logmsg(7, "Connector %u can't be probed (errno=%d %s)", connectors[i], errno,
                   std::strerror(errno));
    }
}

} // namespace screen

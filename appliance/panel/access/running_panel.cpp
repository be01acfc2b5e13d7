#include "appliance/panel/access/running_panel.h"

#include "appliance/operating/refused.h"
#include "appliance/panel/access/one_time_link.h"
#include "appliance/panel/access/panel_files.h"
#include "appliance/panel/access/private_file.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <system_error>
#include <unistd.h>

namespace panel {

RunningPanel::RunningPanel() {
    makePrivateFolder(runFolder());
    makePrivateFolder(linksFolder());
    const std::string path = runFolder() + "/lock";
    lock_ = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (lock_ < 0)
        throw std::system_error(errno, std::generic_category(), path);
    if (flock(lock_, LOCK_EX | LOCK_NB) != 0) {
        close(lock_);
        throw Refused("another panel of this decoder runs already");
    }
    removeOldLinks();
}

RunningPanel::~RunningPanel() {
    close(lock_);
}

void RunningPanel::tellAddress(const std::string& address, std::uint16_t port, bool secure) const {
    writePrivateFile(addressFile(), urlOf(address, port, secure) + '\n');
}

std::string RunningPanel::urlOf(const std::string& address, std::uint16_t port, bool secure) {
    std::string host = address == "0.0.0.0" ? "127.0.0.1" : address == "::" ? "::1" : address;
    if (host.find(':') != std::string::npos)
        host = '[' + host + ']';
    return (secure ? "https://" : "http://") + host + ':' + std::to_string(port);
}

} // namespace panel

#include "appliance/panel/access/one_time_link.h"

#include "appliance/operating/refused.h"
#include "appliance/panel/access/panel_files.h"
#include "appliance/panel/access/private_file.h"
#include "appliance/panel/access/secrets.h"

#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace panel {
namespace {

constexpr std::size_t secretLength = 64;

// Whether a panel holds its lock.
bool isPanelRunning() {
    const int file = open((runFolder() + "/lock").c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (file < 0 && errno == EACCES)
        throw Refused("only the decoder's user and root may open the panel");
    if (file < 0)
        return false;
    const bool running = flock(file, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    close(file);
    return running;
}

bool isOld(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) != 0 || std::time(nullptr) - status.st_mtime > linkMinutes * 60 ||
           status.st_mtime > std::time(nullptr) + 60;
}

} // namespace

std::string makeOneTimeLink() {
    if (!isPanelRunning())
        throw Refused("the panel does not run; start it with: systemctl start decoder-panel");
    const std::string secret = randomSecret();
    std::string address = readPrivateFile(addressFile());
    address = address.substr(0, address.find('\n'));
    writePrivateFile(linksFolder() + '/' + sha256Text(secret), "");
    return address + "/open/" + secret;
}

// Of two uses at the same time only one removes the file.
bool useOneTimeLink(const std::string& secret) {
    if (secret.size() != secretLength)
        return false;
    const std::string path = linksFolder() + '/' + sha256Text(secret);
    const bool old = isOld(path);
    return unlink(path.c_str()) == 0 && !old;
}

void removeOldLinks() {
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(linksFolder(), ignored)) {
        if (isOld(entry.path().string()))
            unlink(entry.path().c_str());
    }
}

} // namespace panel

#include "appliance/players/sound/sound_lock.h"

#include <libcommon/log.h>
#include <libcommon/paths.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace player {
namespace {

constexpr mode_t accessMode = 0660;

} // namespace

bool SoundLock::take() {
    if (fd_ >= 0)
        return true;
    const std::string path = libcommon::appliancePath("/run/decoder/sound.lock");
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, accessMode);
    if (fd < 0) {
        if (!std::exchange(reported_, true))
            logmsg(3, "Can't open %s (errno=%d %s)", path.c_str(), errno, std::strerror(errno));
        return false;
    }
    // A removed file's lock excludes nobody: the next call makes a new file.
    struct stat info {};
    if (flock(fd, LOCK_EX | LOCK_NB) == 0 && fstat(fd, &info) == 0 && info.st_nlink > 0) {
        fd_ = fd;
        return true;
    }
    close(fd);
    return false;
}

void SoundLock::release() {
    if (fd_ >= 0)
        close(std::exchange(fd_, -1));
}

} // namespace player

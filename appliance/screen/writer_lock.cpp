#include "appliance/screen/writer_lock.h"

#include <libcommon/clock.h>
#include <libcommon/log.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace screen {
namespace {

bool makeParentFolders(const std::string& path) {
    for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
        const std::string folder = path.substr(0, slash);
        if (mkdir(folder.c_str(), 0775) != 0 && errno != EEXIST) {
            logmsg(3, "Can't make the folder %s (errno=%d %s)", folder.c_str(), errno, std::strerror(errno));
            return false;
        }
    }
    return true;
}

int openLockFile(const std::string& path) {
    int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (fd >= 0 || errno != ENOENT || !makeParentFolders(path))
        return fd;
    fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, storeAccessMode);
    if (fd >= 0)
        fchmod(fd, storeAccessMode);
    return fd;
}

// False when the folder was removed and another process made a new lock file: a lock on the old one then
// excludes no other writer.
bool stillThere(int fd) {
    struct stat info {};
    return fstat(fd, &info) == 0 && info.st_nlink > 0;
}

} // namespace

WriterLock::WriterLock(const std::string& storePath) {
    const std::string path = storePath + ".lock";
    const std::int64_t deadline = gettimeusec() + 1'000'000;
    int fd = openLockFile(path);
    while (fd >= 0) {
        const bool locked = flock(fd, LOCK_EX | LOCK_NB) == 0;
        if (locked && stillThere(fd)) {
            fd_ = fd;
            return;
        }
        if ((!locked && errno != EWOULDBLOCK && errno != EINTR) || gettimeusec() > deadline)
            break;
        if (locked) {
            close(fd);
            fd = openLockFile(path);
            continue;
        }
        // A drawing takes about two milliseconds. Poll with a limit: a stopped process may hold the lock.
        usleep(200);
    }
    const int error = errno;
    if (fd >= 0)
        close(fd);
    logmsg(3, "Can't lock the frame store %s (errno=%d %s)", path.c_str(), error, std::strerror(error));
}

WriterLock::~WriterLock() {
    if (fd_ >= 0)
        close(fd_);
}

} // namespace screen

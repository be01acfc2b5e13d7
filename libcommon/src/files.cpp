#include "libcommon/src/files.h"

#include "libcommon/src/bounded_lock.h"
#include "libcommon/src/signals_held.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace local {

namespace {

// A name beside `path` that no other thread or process uses. A leading dot: readers of the folder skip it.
// The file of a killed process is replaced by the next process with the same pid.
std::string temporaryName(const std::string& path) {
    const std::size_t slash = path.rfind('/') + 1;
    return path.substr(0, slash) + "." + path.substr(slash) + "." + std::to_string(getpid()) + "." +
           std::to_string(gettid());
}

bool writeNewFile(const std::string& path, std::string_view content) {
    const Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0644));
    return file && writeAll(file.get(), content.data(), content.size());
}

} // namespace

Descriptor::~Descriptor() {
    const int saved = errno;
    if (fd_ >= 0)
        close(fd_);
    errno = saved;
}

bool makeFoldersFor(const char* path) {
    char folder[PATH_MAX];
    const std::size_t length = strnlen(path, sizeof folder);
    if (length >= sizeof folder) {
        errno = ENAMETOOLONG;
        return false;
    }
    std::memcpy(folder, path, length + 1);
    for (std::size_t at = 1; at < length; ++at) {
        if (folder[at] != '/')
            continue;
        folder[at] = '\0';
        // It is enough that the folder exists: this user may not be allowed to write the folder above it.
        struct stat there {};
        if (mkdir(folder, 0755) != 0 && errno != EEXIST && stat(folder, &there) != 0)
            return false;
        folder[at] = '/';
    }
    return true;
}

bool statFolderOf(const char* path, struct stat& folder) {
    char name[PATH_MAX];
    const char* slash = std::strrchr(path, '/');
    const auto length = static_cast<std::size_t>(slash == nullptr ? 0 : slash + 1 - path);
    if (length >= sizeof name) {
        errno = ENAMETOOLONG;
        return false;
    }
    std::memcpy(name, path, length);
    name[length] = '\0';
    return stat(length == 0 ? "." : name, &folder) == 0;
}

bool writeAll(int fd, const char* bytes, std::size_t length) {
    while (length > 0) {
        const ssize_t written = write(fd, bytes, length);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        bytes += written;
        length -= static_cast<std::size_t>(written);
    }
    return true;
}

bool readAll(int fd, std::size_t maximum, std::string& text) {
    struct stat file {};
    if (fstat(fd, &file) != 0)
        return false;
    if (!S_ISREG(file.st_mode)) {
        errno = S_ISDIR(file.st_mode) ? EISDIR : EINVAL;
        return false;
    }
    if (static_cast<std::size_t>(file.st_size) > maximum) {
        errno = EFBIG;
        return false;
    }
    // One byte more than expected shows the end without another round; the file may grow while it is read.
    std::size_t have = 0;
    text.resize(static_cast<std::size_t>(file.st_size) + 1);
    for (;;) {
        const ssize_t got = read(fd, text.data() + have, text.size() - have);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return false;
        have += static_cast<std::size_t>(got);
        if (got == 0 || have > maximum)
            break;
        if (have == text.size())
            text.resize(std::min(2 * have, maximum + 1));
    }
    text.resize(have);
    if (have > maximum)
        errno = EFBIG;
    return have <= maximum;
}

bool readSmallFile(const std::string& path, std::size_t maximum, std::string& text) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
    return file && readAll(file.get(), maximum, text);
}

bool replaceSmallFile(const std::string& path, std::string_view content) {
    const std::string temporary = temporaryName(path);
    unlink(temporary.c_str());
    bool done = writeNewFile(temporary, content);
    if (!done && errno == ENOENT)
        done = makeFoldersFor(path.c_str()) && writeNewFile(temporary, content);
    done = done && rename(temporary.c_str(), path.c_str()) == 0;
    if (!done) {
        const int error = errno;
        unlink(temporary.c_str());
        errno = error;
    }
    return done;
}

LockedFile::LockedFile(const char* path) : path_(path), fd_(openLockFile(path)) {
    locked_ = fd_ && lockWithin(fd_.get(), LOCK_EX, lockPatience(), SignalsInWait::letIn);
    tooLong_ = !locked_ && errno == ETIMEDOUT;
}

LockedFile::~LockedFile() {
    const ErrnoKept errnoKept;
    if (locked_)
        flock(fd_.get(), LOCK_UN);
}

std::string LockedFile::reason() const {
    const ErrnoKept errnoKept;
    return tooLong_ ? std::string(lockHolder(fd_.get()).text) + " holds the lock " + path_
                    : "the lock " + path_ + " can't be taken";
}

} // namespace local

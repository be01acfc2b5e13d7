#include "libcommon/src/files.h"

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
// What a killed process leaves behind is taken over by the next one with the same number.
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
        // A folder above may be one that we may pass but not write; what matters is whether it is there.
        struct stat there {};
        if (mkdir(folder, 0755) != 0 && errno != EEXIST && stat(folder, &there) != 0)
            return false;
        folder[at] = '/';
    }
    return true;
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
    // One byte more than expected tells the end without another round; the file may grow while it is read.
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

bool waitForLock(int fd, int operation) {
    int result = 0;
    do {
        result = flock(fd, operation);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

int openLockFile(const char* path) {
    // Reading is enough for flock(), so that whoever may read the folder's files may lock them too; nobody
    // else may, because a lock held for ever stops every writer.
    constexpr int flags = O_RDONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    const int fd = open(path, flags, 0640);
    if (fd >= 0 || errno != ENOENT || !makeFoldersFor(path))
        return fd;
    return open(path, flags, 0640);
}

LockedFile::LockedFile(const char* path)
    : fd_(openLockFile(path)), locked_(fd_ >= 0 && waitForLock(fd_, LOCK_EX)) {}

LockedFile::~LockedFile() {
    const int saved = errno;
    if (locked_)
        flock(fd_, LOCK_UN);
    if (fd_ >= 0)
        close(fd_);
    errno = saved;
}

} // namespace local

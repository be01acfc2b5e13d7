// Small files: how the stores below the run directory read, replace and lock them.
//
// Nothing here logs; failures are reported by errno, and the caller logs them with their context.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <sys/types.h>
#include <utility>

namespace local {

// A file descriptor that is closed with its owner.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~Descriptor();

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }

private:
    int fd_ = -1;
};

// Makes the missing folders above `path`, mode 0755. False with errno. Safe in a signal handler.
bool makeFoldersFor(const char* path);

// The state of the folder that `path` is in. False with errno. Safe in a signal handler.
bool statFolderOf(const char* path, struct stat& folder);

// Writes all bytes; false with errno. Safe in a signal handler.
bool writeAll(int fd, const char* bytes, std::size_t length);

// The whole of a regular file of at most `maximum` bytes, read from `fd`. False with errno: EFBIG, EISDIR,
// EINVAL when it is not a regular file, or the error of read().
bool readAll(int fd, std::size_t maximum, std::string& text);

// The same by name; symbolic links in place of the file are not followed.
bool readSmallFile(const std::string& path, std::size_t maximum, std::string& text);

// Replaces a file as a whole: a reader sees the old or the new one. Not durable. Makes missing folders. False
// with errno; then the old file is still there. Any thread and process at once: the last one wins.
bool replaceSmallFile(const std::string& path, std::string_view content);

// The exclusive lock of a lock file, for the life of the object; the file is made where it is missing, with its
// folders. Waits at most lockPatience; on the main thread SIGINT and SIGCHLD are let in meanwhile. The lock is released
// explicitly: a child forked meanwhile has the same lock open and would keep it.
class LockedFile {
public:
    explicit LockedFile(const char* path);
    ~LockedFile();
    LockedFile(const LockedFile&) = delete;
    LockedFile& operator=(const LockedFile&) = delete;

    explicit operator bool() const { return locked_; } // false: errno was set by the constructor

    // After a failure: who holds the lock, for the log. Keeps errno.
    std::string reason() const;

private:
    std::string path_;
    Descriptor fd_;
    bool locked_ = false;
    bool tooLong_ = false; // another process held it all the time
};

} // namespace local

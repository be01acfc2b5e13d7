#include "libcommon/src/bounded_lock.h"

#include "libcommon/src/event_queue_id.h"
#include "libcommon/src/files.h"
#include "libcommon/src/signals_held.h"
#include "libcommon/src/wait_mask.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace local {

namespace {

constexpr int openFlags = O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;

std::chrono::nanoseconds now() {
    return std::chrono::steady_clock::now().time_since_epoch();
}

// Makes the lock file usable for the folder's group. Failing is no error: the lock works for this user.
void followFolder(int fd, const char* path) {
    struct stat folder {};
    struct stat file {};
    if (!statFolderOf(path, folder) || fstat(fd, &file) != 0)
        return;
    // It is opened for reading, but a network file system wants the right to write for an exclusive lock.
    const mode_t mode = (folder.st_mode & S_IWGRP) != 0 ? 0660 : 0640;
    if (file.st_gid != folder.st_gid && fchown(fd, static_cast<uid_t>(-1), folder.st_gid) != 0)
        return;
    if ((file.st_mode & 07777) != mode)
        fchmod(fd, mode);
}

// The process that makes the file sets its rights. Root also repairs those of a file that exists.
int openOrMake(const char* path) {
    for (int i = 0; i < 2; ++i) {
        const int there = open(path, openFlags);
        if (there >= 0 && geteuid() == 0)
            followFolder(there, path);
        if (there >= 0 || errno != ENOENT)
            return there;
        const int made = open(path, openFlags | O_CREAT | O_EXCL, 0640);
        if (made >= 0)
            followFolder(made, path);
        if (made >= 0 || errno != EEXIST)
            return made;
    }
    return -1; // it is removed again and again
}

// The pid in a line of /proc/locks when it is about the flock of that file, 0 otherwise:
// "12: FLOCK  ADVISORY  WRITE 4711 fe:00:10953129 0 EOF"; with "->" behind the number it is a process that waits.
int holderIn(const char* line, const struct stat& file) {
    unsigned major = 0;
    unsigned minor = 0;
    std::uintmax_t inode = 0;
    int pid = 0;
    if (std::sscanf(line, "%*u: FLOCK %*s %*s %d %x:%x:%ju", &pid, &major, &minor, &inode) != 4)
        return 0;
    const bool same = inode == file.st_ino && major == ::major(file.st_dev) && minor == ::minor(file.st_dev);
    return same ? pid : 0;
}

int findHolder(int locks, const struct stat& file) {
    char text[4096];
    std::size_t have = 0;
    ssize_t got = 0;
    while ((got = read(locks, text + have, sizeof text - 1 - have)) > 0) {
        have += static_cast<std::size_t>(got);
        text[have] = '\0';
        char* line = text;
        for (char* end = std::strchr(line, '\n'); end != nullptr; end = std::strchr(line, '\n')) {
            *end = '\0';
            if (const int pid = holderIn(line, file); pid > 0)
                return pid;
            line = end + 1;
        }
        have -= static_cast<std::size_t>(line - text);
        std::memmove(text, line, have);
        if (have == sizeof text - 1)
            return 0; // no line is that long
    }
    return 0;
}

// The program's name as the kernel keeps it; a program chooses it freely.
void readName(int pid, char (&name)[17]) {
    char path[32];
    std::snprintf(path, sizeof path, "/proc/%d/comm", pid);
    const Descriptor fd(open(path, O_RDONLY | O_CLOEXEC));
    const ssize_t length = fd ? read(fd.get(), name, sizeof name - 1) : 0;
    name[length < 0 ? 0 : length] = '\0';
    name[std::strcspn(name, "\n")] = '\0';
    for (char* c = name; *c != '\0'; ++c)
        if (*c < ' ' || *c > '~')
            *c = '?';
}

} // namespace

std::chrono::milliseconds lockPatience() {
    return ownsEventQueue() ? supervisorPatience : otherPatience;
}

void pauseFor(std::chrono::milliseconds time, SignalsInWait signals) {
    const timespec length{.tv_sec = static_cast<time_t>(time.count() / 1000),
                          .tv_nsec = static_cast<long>(time.count() % 1000) * 1'000'000};
    const sigset_t mask = waitMask(signals == SignalsInWait::letIn && onMainThread());
    ppoll(nullptr, 0, &length, &mask);
}

bool lockWithin(int fd, int operation, std::chrono::milliseconds patience, SignalsInWait signals) {
    const auto end = now() + patience;
    for (;;) {
        if (flock(fd, operation | LOCK_NB) == 0)
            return true;
        if (errno != EWOULDBLOCK && errno != EINTR)
            return false;
        if (now() >= end) {
            errno = ETIMEDOUT;
            return false;
        }
        pauseFor(lockInterval, signals);
    }
}

int openLockFile(const char* path) {
    const int fd = openOrMake(path);
    return fd >= 0 || errno != ENOENT || !makeFoldersFor(path) ? fd : openOrMake(path);
}

LockHolder lockHolder(int fd) {
    const ErrnoKept errnoKept;
    LockHolder holder;
    struct stat file {};
    const Descriptor locks(open("/proc/locks", O_RDONLY | O_CLOEXEC));
    const int pid = locks && fstat(fd, &file) == 0 ? findHolder(locks.get(), file) : 0;
    char name[17] = {};
    if (pid > 0)
        readName(pid, name);
    if (pid > 0)
        std::snprintf(holder.text, sizeof holder.text, name[0] == '\0' ? "process %d" : "process %d (%s)",
                      pid, name);
    return holder;
}

} // namespace local

#include "process/owner_lock.h"

#include "process/paths.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstddef>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr const char* lockFile = "/run/decoder/skelmor.lock";
constexpr int tries = 300;
constexpr timespec betweenTries{0, 20000000};

// Makes the folders above the file that are missing.
void makeFoldersFor(const std::string& file) {
    for (std::size_t slash = file.find('/', 1); slash != std::string::npos; slash = file.find('/', slash + 1))
        mkdir(file.substr(0, slash).c_str(),
              0755); // existing folders are fine; a folder that can't be made shows at open()
}

int openLockFile(const std::string& file) {
    constexpr int flags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    const int fd = open(file.c_str(), flags, 0640);
    if (fd != -1 || errno != ENOENT)
        return fd;
    makeFoldersFor(file);
    return open(file.c_str(), flags, 0640);
}

// The pid in the file; -1 for anything but a number and a newline.
int recordedPid(int fd) {
    std::array<char, 32> text{};
    const ssize_t length = pread(fd, text.data(), text.size(), 0);
    int pid = -1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + (length < 0 ? 0 : length), pid);
    const bool whole = error == std::errc{} && end + 1 == text.data() + length && *end == '\n';
    return whole ? pid : -1;
}

bool isAlive(int pid) {
    return pid > 0 && (kill(pid, 0) == 0 || errno == EPERM);
}

void recordPid(int fd) {
    const std::string text = std::to_string(getpid()) + "\n";
    // If the pid can't be written, the lock still holds; only its owner's pid is missing.
    if (ftruncate(fd, 0) == 0)
        (void)!pwrite(fd, text.data(), text.size(), 0);
}

// Takes the lock of the open file, or records why not.
void lock(int fd, OwnerLock& owner) {
    for (int i = 0; i < tries; ++i) {
        if (flock(fd, LOCK_EX | LOCK_NB) == 0) {
            recordPid(fd);
            owner.result = OwnerLock::Result::taken;
            return;
        }
        if (errno != EWOULDBLOCK && errno != EINTR) {
            owner.error = errno;
            return;
        }
        owner.pid = recordedPid(fd);
        if (isAlive(owner.pid) && owner.pid != getpid())
            break;
        owner.pid = -1; // the pid was that of an owner that has ended, or the owner is about to write its own
        nanosleep(&betweenTries, nullptr);
    }
    owner.result = OwnerLock::Result::heldByOther;
}

} // namespace

OwnerLock takeOwnerLock() {
    OwnerLock owner;
    owner.file = underApplianceRoot(lockFile);
    const int fd = openLockFile(owner.file);
    if (fd == -1)
        owner.error = errno;
    else
        lock(fd, owner);
    if (fd != -1 && owner.result != OwnerLock::Result::taken)
        close(fd); // a taken lock stays open and held until the process ends
    return owner;
}

#include "libcommon/src/parameter_lock.h"

#include "libcommon/src/files.h"
#include "libcommon/src/parameter_files.h"

#include <atomic>
#include <cerrno>
#include <string>
#include <sys/file.h>
#include <unistd.h>

namespace local {

struct ParameterLock {
    pid_t process;
    std::string path;
    std::mutex mutex; // guards all below, and is held while a thread writes or waits for another process
    int fd = -1;      // the lock file, open while `held` is not LOCK_UN
    int held = LOCK_UN;
    int sharedUsers = 0;
    int exclusiveUsers = 0;
    bool writing = false;
};

namespace {

// One lock a file, made at its first use and never destroyed.
std::atomic<ParameterLock*> locks[2];

std::string lockPath(int fileId) {
    const std::string& path = parameterFilePath(fileId);
    const std::size_t slash = path.rfind('/') + 1;
    return path.substr(0, slash) + "." + path.substr(slash) + ".lock";
}

ParameterLock& lockOf(int fileId) {
    ParameterLock* lock = locks[fileId];
    // A forked child gets a lock of its own: what its parent holds is not the child's, and its mutex may have
    // been locked at the fork by a thread that does not exist here.
    while (lock == nullptr || lock->process != getpid()) {
        auto* mine = new ParameterLock{.process = getpid(), .path = lockPath(fileId), .mutex = {}};
        if (locks[fileId].compare_exchange_strong(lock, mine))
            return *mine;
        delete mine;
    }
    return *lock;
}

void letGo(ParameterLock& lock) {
    const int saved = errno;
    // Explicitly: a child that was forked meanwhile has the same lock open.
    if (lock.fd >= 0) {
        flock(lock.fd, LOCK_UN);
        close(lock.fd);
    }
    lock.fd = -1;
    lock.held = LOCK_UN;
    errno = saved;
}

// Makes what is held what is needed. False with errno; then nothing is held. The lock's mutex is locked.
bool bringUpToDate(ParameterLock& lock) {
    const int needed = lock.writing || lock.exclusiveUsers > 0 ? LOCK_EX
                       : lock.sharedUsers > 0                  ? LOCK_SH
                                                               : LOCK_UN;
    if (needed == LOCK_UN) {
        letGo(lock);
        return true;
    }
    if (needed == lock.held)
        return true;
    if (lock.fd < 0)
        lock.fd = openLockFile(lock.path.c_str());
    if (lock.fd < 0 || !waitForLock(lock.fd, needed)) {
        letGo(lock);
        return false;
    }
    lock.held = needed;
    return true;
}

} // namespace

int takeParameterLock(int fileId, bool exclusive) {
    ParameterLock& lock = lockOf(fileId);
    const std::lock_guard guard(lock.mutex);
    int& users = exclusive ? lock.exclusiveUsers : lock.sharedUsers;
    ++users;
    if (bringUpToDate(lock))
        return 0;
    --users;
    return -1;
}

int releaseParameterLock(int fileId, bool exclusive) {
    ParameterLock& lock = lockOf(fileId);
    const std::lock_guard guard(lock.mutex);
    int& users = exclusive ? lock.exclusiveUsers : lock.sharedUsers;
    if (users == 0) {
        errno = EINVAL;
        return -1;
    }
    --users;
    return bringUpToDate(lock) ? 0 : -1;
}

WriteTurn::WriteTurn(int fileId) : lock_(lockOf(fileId)), thread_(lock_.mutex), granted_(false) {
    lock_.writing = true;
    granted_ = bringUpToDate(lock_);
}

WriteTurn::~WriteTurn() {
    const int saved = errno;
    lock_.writing = false;
    bringUpToDate(lock_);
    errno = saved;
}

} // namespace local

#include "libcommon/src/parameter_lock.h"

#include "libcommon/src/bounded_lock.h"
#include "libcommon/src/parameter_files.h"
#include "libcommon/src/signals_held.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <string>
#include <sys/file.h>
#include <unistd.h>

namespace local {

struct ParameterLock {
    pid_t process;
    std::string path;
    std::mutex mutex;  // guards all below, and is held while a thread writes or waits for another process
    LockHolder holder; // who held the lock when it could not be taken
    std::chrono::steady_clock::time_point taken; // when the lock was taken last, and given back after that
    std::chrono::steady_clock::time_point released;
    std::chrono::steady_clock::time_point mostlyOursSince; // from then on it was held more often than not
    int fd = -1;                                           // the lock file, open while `held` is not LOCK_UN
    int held = LOCK_UN;
    int sharedUsers = 0;
    int exclusiveUsers = 0;
    bool writing = false;
};

namespace {

// One lock per file, made at its first use and never destroyed.
std::atomic<ParameterLock*> locks[2];

std::string lockPath(int fileId) {
    const std::string& path = parameterFilePath(fileId);
    const std::size_t slash = path.rfind('/') + 1;
    return path.substr(0, slash) + "." + path.substr(slash) + ".lock";
}

ParameterLock& lockOf(int fileId) {
    ParameterLock* lock = locks[fileId];
    // A forked child gets a lock of its own: the parent's lock is not the child's, and its mutex may have been locked
    // at the fork by a thread that does not exist here.
    while (lock == nullptr || lock->process != getpid()) {
        auto* mine = new ParameterLock{.process = getpid(),
                                       .path = lockPath(fileId),
                                       .mutex = {},
                                       .holder = {},
                                       .taken = {},
                                       .released = {},
                                       .mostlyOursSince = {}};
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
        lock.released = std::chrono::steady_clock::now();
    }
    lock.fd = -1;
    lock.held = LOCK_UN;
    errno = saved;
}

// Waiting processes poll the lock. A process that writes again and again would always take it before them; a few writes
// in a row are over before they poll again.
void letOthersGoFirst(ParameterLock& lock) {
    const auto now = std::chrono::steady_clock::now();
    const bool again = lock.released > lock.taken && now - lock.released < lock.released - lock.taken;
    if (again && now - lock.mostlyOursSince < lockInterval)
        return;
    if (again)
        pauseFor(3 * lockInterval, SignalsInWait::letIn);
    lock.mostlyOursSince = std::chrono::steady_clock::now();
}

// Takes or releases the lock as its users need it. False with errno; then nothing is held. The mutex is locked.
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
    if (lock.fd < 0) {
        letOthersGoFirst(lock);
        lock.fd = openLockFile(lock.path.c_str());
    }
    if (lock.fd < 0 || !lockWithin(lock.fd, needed, lockPatience(), SignalsInWait::letIn)) {
        if (lock.fd >= 0 && errno == ETIMEDOUT)
            lock.holder = lockHolder(lock.fd);
        letGo(lock);
        return false;
    }
    if (lock.held == LOCK_UN)
        lock.taken = std::chrono::steady_clock::now();
    lock.held = needed;
    return true;
}

std::string reasonOf(const ParameterLock& lock, int error) {
    return error == ETIMEDOUT ? std::string(lock.holder.text) + " holds its lock" : "its lock can't be taken";
}

} // namespace

std::string parameterLockFailure(int fileId, int error) {
    ParameterLock& lock = lockOf(fileId);
    const std::lock_guard guard(lock.mutex);
    return reasonOf(lock, error);
}

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

std::string WriteTurn::reason() const {
    const ErrnoKept errnoKept;
    return reasonOf(lock_, errnoKept.value());
}

WriteTurn::~WriteTurn() {
    const int saved = errno;
    lock_.writing = false;
    bringUpToDate(lock_);
    errno = saved;
}

} // namespace local

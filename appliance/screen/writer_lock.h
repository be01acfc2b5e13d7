// The lock of the frame store's writers: a file beside the store that is never replaced. The kernel releases the
// lock when its holder dies.
#pragma once

#include <string>
#include <sys/types.h>

namespace screen {

inline constexpr mode_t storeAccessMode = 0660; // of the store and its lock file

class WriterLock {
public:
    // Waits at most a second for the lock. `held()` is false, with a log line, when that failed. Makes the folders
    // of the store when they are missing.
    explicit WriterLock(const std::string& storePath);
    WriterLock(const WriterLock&) = delete;
    WriterLock& operator=(const WriterLock&) = delete;
    ~WriterLock();
    bool held() const { return fd_ >= 0; }

private:
    int fd_ = -1;
};

} // namespace screen

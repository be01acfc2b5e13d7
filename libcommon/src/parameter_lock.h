// The locks of the parameter files: between processes, and nested within one.
//
// A lock file beside each parameter file carries a flock. This process holds it exclusively while it writes,
// and shared or exclusively while userOpenAndLockParamFile() asks for it; all its threads share what it
// holds.
#pragma once

#include <mutex>

namespace local {

struct ParameterLock;

// 0, or -1 with errno. `fileId` is a parameter file.
int takeParameterLock(int fileId, bool exclusive);

// -1 with EINVAL when this process does not hold the lock in that way.
int releaseParameterLock(int fileId, bool exclusive);

// This process's and this thread's turn to write the file, for the life of the object.
class WriteTurn {
public:
    explicit WriteTurn(int fileId);
    ~WriteTurn();
    WriteTurn(const WriteTurn&) = delete;
    WriteTurn& operator=(const WriteTurn&) = delete;

    explicit operator bool() const { return granted_; } // false: errno was set by the constructor

private:
    ParameterLock& lock_;
    std::unique_lock<std::mutex> thread_;
    bool granted_;
};

} // namespace local

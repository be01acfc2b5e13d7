// The locks of the parameter files: between processes, and nested within one.
//
// A lock file beside each parameter file carries a flock. This process holds it exclusively while it writes,
// and shared or exclusively while userOpenAndLockParamFile() asks for it; all its threads share what it
// holds.
#pragma once

#include <mutex>
#include <string>

namespace local {

struct ParameterLock;

// 0, or -1 with errno: ETIMEDOUT when another process holds it for longer than lockPatience. `fileId` is a parameter file.
int takeParameterLock(int fileId, bool exclusive);

// -1 with EINVAL when this process does not hold the lock in that way.
int releaseParameterLock(int fileId, bool exclusive);

// Why the lock was not taken, for the log; `error` is the errno of the failure.
std::string parameterLockFailure(int fileId, int error);

// This process's and this thread's turn to write the file, for the life of the object.
// Waits at most lockPatience for another process, and for each thread of this process that came first.
class WriteTurn {
public:
    explicit WriteTurn(int fileId);
    ~WriteTurn();
    WriteTurn(const WriteTurn&) = delete;
    WriteTurn& operator=(const WriteTurn&) = delete;

    explicit operator bool() const { return granted_; } // false: errno was set by the constructor

    // Right after a failure: why, for the log. Keeps errno.
    std::string reason() const;

private:
    ParameterLock& lock_;
    std::unique_lock<std::mutex> thread_;
    bool granted_;
};

} // namespace local

// Files that only the decoder's user may read.
#pragma once

#include <string>

namespace panel {

// Replaces the file: afterwards it is whole and readable by its owner only. Where root writes it, it belongs to the owner
// of its folder. Throws std::system_error.
void writePrivateFile(const std::string& path, const std::string& text);

// The text of the file; "" if it does not exist. Throws std::system_error, and std::runtime_error for more than 1 MiB or
// if other users may read it.
std::string readPrivateFile(const std::string& path);

// The lock of a private file. A process that changes the file holds the lock from reading it to replacing it, so that of
// two changes at once none is lost. Processes that only read need no lock: the file is always whole.
class PrivateFileLock {
public:
    // Waits for the lock, at most five seconds. Throws std::system_error (ETIMEDOUT: another process keeps it). The lock
    // is on the file PATH.lock, which stays.
    explicit PrivateFileLock(const std::string& path);
    ~PrivateFileLock();
    PrivateFileLock(const PrivateFileLock&) = delete;
    PrivateFileLock& operator=(const PrivateFileLock&) = delete;

private:
    int descriptor_ = -1;
};

// Makes the folder for its owner only, with the same owner as the folder above it. Throws std::system_error.
void makePrivateFolder(const std::string& path);

} // namespace panel

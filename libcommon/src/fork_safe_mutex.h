// A mutex that fork() never leaves locked in the child.
//
// Players read parameters and log between fork and exec, while other threads of the supervisor do the same
// all the time. An ordinary mutex that one of them holds at the fork would stay locked in the child for ever.
// So a fork takes all of these mutexes first and gives them back on both sides. Two rules keep that free of
// deadlocks: a thread that holds one of them takes no other, and holds it for a bounded time only. They live as
// long as the process.
#pragma once

#include <mutex>

namespace local {

class ForkSafeMutex {
public:
    ForkSafeMutex();
    ForkSafeMutex(const ForkSafeMutex&) = delete;
    ForkSafeMutex& operator=(const ForkSafeMutex&) = delete;

    void lock() { mutex_.lock(); }
    void unlock() { mutex_.unlock(); }

private:
    ~ForkSafeMutex() = default; // never destroyed: a fork may come at any time

    std::mutex mutex_;
};

} // namespace local

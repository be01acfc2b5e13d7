// A mutex that fork() never leaves locked in the child.
//
// Players read parameters and log between fork and exec, while other threads of the supervisor do the same
// all the time. An ordinary mutex that one of them holds at the fork would stay locked in the child for ever.
// So a fork takes all of these mutexes first and gives them back on both sides. Two rules keep that free of
// deadlocks: whoever holds one of them takes no other, and holds it only for a bounded time. They live as
// long as the process.
#pragma once

#include <atomic>
#include <mutex>
#include <sys/types.h>
#include <unistd.h>

namespace local {

class ForkSafeMutex {
public:
    ForkSafeMutex();
    ForkSafeMutex(const ForkSafeMutex&) = delete;
    ForkSafeMutex& operator=(const ForkSafeMutex&) = delete;

    void lock() {
        mutex_.lock();
        holder_ = gettid();
    }
    void unlock() {
        holder_ = 0;
        mutex_.unlock();
    }

    // Whether this thread has it. For handlers of a crash: a thread that crashed never gives it back.
    bool isMine() const { return holder_ == gettid(); }

private:
    ~ForkSafeMutex() = default; // never destroyed: a fork may come at any time

    std::mutex mutex_;
    std::atomic<pid_t> holder_{0}; // thread id
};

} // namespace local

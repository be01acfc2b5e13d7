// A mutex that fork() never leaves locked in the child.
//
// Players read parameters and log between fork and exec, while other threads of the supervisor do the same all the
// time. An ordinary mutex that one of them holds at the fork would stay locked in the child forever. So a fork takes
// all of these mutexes first and releases them in parent and child. Two rules keep that free of deadlocks: a thread
// that holds one of them takes no other, and holds it for a bounded time only. They live as long as the process.
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

    // Whether this thread has it. For handlers of a crash: a thread that crashed never releases it.
    bool isMine() const { return holder_ == gettid(); }

private:
    ~ForkSafeMutex() = default; // never destroyed: a fork may come at any time

    std::mutex mutex_;
    std::atomic<pid_t> holder_{0}; // thread id
};

} // namespace local

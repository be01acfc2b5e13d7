// A mutex that fork() never leaves locked in the child.
//
// Players read parameters and log between fork and exec, while other threads of the supervisor do the same all the
// time. An ordinary mutex that one of them holds at the fork would stay locked in the child forever. So a fork takes
// all of these mutexes first and releases them in parent and child. Two rules keep that free of deadlocks: a thread
// that holds one of them takes no other, and holds it for a bounded time only. They live as long as the process.
#pragma once

#include <atomic>
#include <mutex>

namespace local {

class ForkSafeMutex {
public:
    ForkSafeMutex();
    ForkSafeMutex(const ForkSafeMutex&) = delete;
    ForkSafeMutex& operator=(const ForkSafeMutex&) = delete;

    void lock() {
        mutex_.lock();
        holder_ = thisThread();
    }
    void unlock() {
        holder_ = nullptr;
        mutex_.unlock();
    }

    // Whether this thread has it. For handlers of a crash: a thread that crashed never releases it.
    bool isMine() const { return holder_ == thisThread(); }

private:
    ~ForkSafeMutex() = default; // never destroyed: a fork may come at any time

    // The address of something that each thread has one of. It costs no system call, and a forked child keeps it.
    static const void* thisThread() { return __builtin_thread_pointer(); }

    std::mutex mutex_;
    std::atomic<const void*> holder_{nullptr}; // thisThread() of the thread that has it
};

} // namespace local

// The gateway's event loop: one thread that waits for descriptors, timers and work posted by other threads.
//
// Callbacks run one after the other on the thread that calls run(). A callback may watch and forget any descriptor, its
// own included, and start and cancel timers. It must not destroy the object that it belongs to; later() does that
// after the present callback.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <sys/epoll.h>
#include <unordered_map>
#include <utility>
#include <vector>

namespace gateway {

class EventLoop {
public:
    using Ready = std::function<void(std::uint32_t events)>; // of epoll: EPOLLIN, EPOLLOUT, ...
    using Timer = std::uint64_t;                             // 0: none

    EventLoop();
    ~EventLoop();
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    // Calls `ready` whenever one of the events happens. The descriptor stays the caller's, who calls forget() before
    // closing it.
    void watch(int fd, std::uint32_t events, Ready ready);
    void change(int fd, std::uint32_t events);
    void forget(int fd);

    // Calls `what` once, not before the delay is over.
    Timer after(std::chrono::milliseconds delay, std::function<void()> what);
    // Cancels a timer that may have happened already, and sets it to 0.
    void cancel(Timer& timer);

    // Calls `what` soon. Any thread.
    void later(std::function<void()> what);

    void run(); // until end() was called
    void end();

private:
    using Clock = std::chrono::steady_clock;
    struct Watch {
        int fd;
        Ready ready;
    };

    int millisecondsToWait() const;
    void callReady(std::span<const epoll_event> events);
    void callTimers();
    void callPosted();

    int epoll_;
    int wake_; // eventfd, signalled by later()
    bool ended_ = false;
    std::uint64_t next_ = 1; // id of the next watch or timer
    std::unordered_map<std::uint64_t, std::shared_ptr<Watch>> watches_;
    std::unordered_map<int, std::uint64_t> ids_; // of the watches, by descriptor
    std::map<std::pair<Clock::time_point, Timer>, std::function<void()>> timers_;
    std::unordered_map<Timer, Clock::time_point> times_;

    std::mutex lock_;
    std::vector<std::function<void()>> posted_; // guarded by lock_
};

} // namespace gateway

#include "appliance/gateway/loop/event_loop.h"

#include <libcommon/log.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>

namespace gateway {
namespace {

constexpr std::uint64_t wakeId = 0;
constexpr int atOnce = 64;

} // namespace

EventLoop::EventLoop() : epoll_(epoll_create1(EPOLL_CLOEXEC)), wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    epoll_event wake{.events = EPOLLIN, .data = {.u64 = wakeId}};
    if (epoll_ < 0 || wake_ < 0 || epoll_ctl(epoll_, EPOLL_CTL_ADD, wake_, &wake) != 0)
        logmsg(2, "The event loop can't be made (errno=%d %s)", errno, std::strerror(errno));
}

EventLoop::~EventLoop() {
    close(wake_);
    close(epoll_);
}

void EventLoop::watch(int fd, std::uint32_t events, Ready ready) {
    forget(fd);
    const std::uint64_t id = next_++;
    epoll_event event{.events = events, .data = {.u64 = id}};
    if (epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &event) != 0) {
        logmsg(3, "Descriptor %d can't be watched (errno=%d %s)", fd, errno, std::strerror(errno));
        return;
    }
    watches_[id] = std::make_shared<Watch>(Watch{fd, std::move(ready)});
    ids_[fd] = id;
}

void EventLoop::change(int fd, std::uint32_t events) {
    const auto id = ids_.find(fd);
    if (id == ids_.end())
        return;
    epoll_event event{.events = events, .data = {.u64 = id->second}};
    epoll_ctl(epoll_, EPOLL_CTL_MOD, fd, &event);
}

void EventLoop::forget(int fd) {
    const auto id = ids_.find(fd);
    if (id == ids_.end())
        return;
    epoll_ctl(epoll_, EPOLL_CTL_DEL, fd,
              nullptr); // fails when the descriptor was closed; then it is gone anyway
    watches_.erase(id->second);
    ids_.erase(id);
}

EventLoop::Timer EventLoop::after(std::chrono::milliseconds delay, std::function<void()> what) {
    const Timer timer = next_++;
    const Clock::time_point time = Clock::now() + delay;
    timers_[{time, timer}] = std::move(what);
    times_[timer] = time;
    return timer;
}

void EventLoop::cancel(Timer& timer) {
    const auto time = times_.find(std::exchange(timer, 0));
    if (time == times_.end())
        return;
    timers_.erase({time->second, time->first});
    times_.erase(time);
}

void EventLoop::later(std::function<void()> what) {
    {
        const std::lock_guard guard(lock_);
        posted_.push_back(std::move(what));
    }
    eventfd_write(wake_, 1);
}

int EventLoop::millisecondsToWait() const {
    if (timers_.empty())
        return -1;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(timers_.begin()->first.first - Clock::now());
    return static_cast<int>(std::clamp<long long>(left.count(), 0, 3600 * 1000));
}

// A callback may forget a watch whose event waits in the same batch, so each is looked up by its id.
void EventLoop::callReady(std::span<const epoll_event> events) {
    for (const epoll_event& event : events) {
        if (event.data.u64 == wakeId) {
            eventfd_t value = 0;
            eventfd_read(wake_, &value);
            continue;
        }
        const auto found = watches_.find(event.data.u64);
        if (found == watches_.end())
            continue;
        const std::shared_ptr<Watch> kept = found->second; // it may forget itself
        kept->ready(event.events);
    }
}

void EventLoop::callTimers() {
    const Clock::time_point now = Clock::now();
    while (!timers_.empty() && timers_.begin()->first.first <= now) {
        const auto first = timers_.begin();
        const std::function<void()> what = std::move(first->second);
        times_.erase(first->first.second);
        timers_.erase(first);
        what();
    }
}

void EventLoop::callPosted() {
    std::vector<std::function<void()>> posted;
    {
        const std::lock_guard guard(lock_);
        posted.swap(posted_);
    }
    for (const auto& what : posted)
        what();
}

void EventLoop::run() {
    ended_ = false;
    std::array<epoll_event, atOnce> happened{};
    while (!ended_) {
        const int count = epoll_wait(epoll_, happened.data(), atOnce, millisecondsToWait());
        if (count < 0 && errno != EINTR) {
            logmsg(2, "The event loop can't wait (errno=%d %s)", errno, std::strerror(errno));
            return;
        }
        callReady({happened.data(), static_cast<std::size_t>(std::max(count, 0))});
        callTimers();
        callPosted();
    }
    callPosted(); // what the last calls have left to be destroyed
}

void EventLoop::end() {
    ended_ = true;
}

} // namespace gateway

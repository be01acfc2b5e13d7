#include "appliance/gateway/loop/event_loop.h"

#include <gmock/gmock.h>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace gateway {
namespace {

using std::chrono::milliseconds;

TEST(EventLoop, TimersComeInTheirOrderAndCancelledOnesDoNot) {
    EventLoop loop;
    std::vector<int> called;
    EventLoop::Timer cancelled = loop.after(milliseconds(1), [&] { called.push_back(0); });
    loop.after(milliseconds(20), [&] {
        called.push_back(2);
        loop.end();
    });
    loop.after(milliseconds(2), [&] { called.push_back(1); });
    loop.cancel(cancelled);
    EXPECT_EQ(cancelled, 0U);
    loop.run();
    EXPECT_THAT(called, testing::ElementsAre(1, 2));
}

TEST(EventLoop, AForgottenDescriptorOfTheSameBatchIsNotCalled) {
    EventLoop loop;
    const int one = eventfd(1, EFD_CLOEXEC);
    const int two = eventfd(1, EFD_CLOEXEC);
    int calls = 0;
    const auto ready = [&](std::uint32_t /*events*/) {
        ++calls;
        loop.forget(one);
        loop.forget(two);
        loop.after(milliseconds(5), [&] { loop.end(); });
    };
    loop.watch(one, EPOLLIN, ready);
    loop.watch(two, EPOLLIN, ready);
    loop.run();
    EXPECT_EQ(calls, 1);
    close(one);
    close(two);
}

TEST(EventLoop, WorkOfAnotherThreadWakesIt) {
    EventLoop loop;
    std::thread other([&] { loop.later([&] { loop.end(); }); });
    loop.run();
    other.join();
}

} // namespace
} // namespace gateway

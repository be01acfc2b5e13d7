#include "events/thread_start.h"

#include "tests/fakes/fake_libcommon.h"

#include <atomic>
#include <cerrno>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <thread>

namespace {

int refusals = 0; // of the next calls of pthread_create
std::atomic<bool> ran{false};

void* run(void* argument) {
    ran = true;
    *static_cast<std::atomic<bool>*>(argument) = true;
    return nullptr;
}

} // namespace

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                              void* argument) noexcept {
    using Create = int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const auto real = reinterpret_cast<Create*>(dlsym(RTLD_NEXT, "pthread_create"));
    return refusals-- > 0 ? EAGAIN : real(thread, attributes, body, argument);
}

namespace {

bool start(std::atomic<bool>& argument) {
    fake::reset();
    return startDetachedThread(run, &argument, 0, "a test");
}

TEST(ThreadStart, AThreadThatIsRefusedForAMomentIsStartedLater) {
    static std::atomic<bool> seen{false};
    refusals = 3;
    ASSERT_TRUE(start(seen));
    for (int i = 0; i < 10000 && !seen; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_TRUE(seen);
    ASSERT_EQ(fake::log.size(), 1U);
    EXPECT_EQ(fake::log[0].text.find("Failed to start the thread of a test, trying again. (errno=11 "), 0U);
}

TEST(ThreadStart, OneThatIsRefusedAllTheTimeIsGivenUp) {
    static std::atomic<bool> seen{false};
    refusals = 1000;
    EXPECT_FALSE(start(seen));
    refusals = 0;
    ASSERT_EQ(fake::log.size(), 2U);
    EXPECT_EQ(fake::log[1].level, 2);
    EXPECT_FALSE(seen);
}

} // namespace

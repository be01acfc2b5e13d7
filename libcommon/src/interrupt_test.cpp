#include <libcommon/interrupt.h>

#include <csignal>
#include <gtest/gtest.h>
#include <thread>

namespace {

TEST(Interrupt, TheFlagIsClearAtFirstAndStaysSetUntilCleared) {
    EXPECT_FALSE(isInterrupted());
    setInterrupted();
    EXPECT_TRUE(isInterrupted());
    EXPECT_TRUE(isInterrupted());
    clearInterrupted();
    EXPECT_FALSE(isInterrupted());
}

TEST(Interrupt, EveryThreadSeesTheSameFlag) {
    std::thread(setInterrupted).join();
    EXPECT_TRUE(isInterrupted());
    std::thread(clearInterrupted).join();
    EXPECT_FALSE(isInterrupted());
}

TEST(Interrupt, ASignalHandlerMaySetIt) {
    std::signal(SIGUSR2, [](int) { setInterrupted(); });
    raise(SIGUSR2);
    EXPECT_TRUE(isInterrupted());
    clearInterrupted();
}

} // namespace

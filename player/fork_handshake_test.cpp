// The fork hand-shake with the real semaphores: no child continues before its barrier exists, even after children that
// were killed.
#include "barrier/barrier_table.h"
#include "libcommon/src/appliance_fixture.h"
#include "player/children.h"
#include "player/launch.h"

#include <libcommon/semaphores.h>

#include <csignal>
#include <fcntl.h>
#include <functional>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Called while the parent creates a child's barrier, before it releases the child; set by the tests.
std::function<void(int pid)> whileTheBarrierIsMade;

} // namespace

// Replaces the function of the barrier table.
int createBarrier(int pid) {
    if (whileTheBarrierIsMade)
        whileTheBarrierIsMade(pid);
    return 0;
}

namespace {

constexpr int passedStatus = 7;

// Each child that gets through the hand-shake writes a byte into this pipe.
class ForkHandshake : public ApplianceTest {
protected:
    ForkHandshake() {
        EXPECT_EQ(pipe2(passed_, O_CLOEXEC), 0);
        EXPECT_EQ(semaphoreInit(2002), 0);
        whileTheBarrierIsMade = nullptr;
    }
    ~ForkHandshake() override {
        close(passed_[0]);
        close(passed_[1]);
    }

    bool hasPassedWithin(int milliseconds) const {
        pollfd end{passed_[0], POLLIN, 0};
        return poll(&end, 1, milliseconds) == 1;
    }

    int forkChild() const {
        const int pid = gaffel();
        if (pid == 0)
            _exit(::write(passed_[1], "x", 1) == 1 ? passedStatus : 1);
        return pid;
    }

    static int endOf(int pid) {
        int status = -1;
        waitpid(pid, &status, 0);
        return status;
    }

    int passed_[2] = {-1, -1};
};

TEST_F(ForkHandshake, AChildPassesOnlyOnceItsBarrierExists) {
    bool early = true;
    whileTheBarrierIsMade = [&](int) { early = hasPassedWithin(100); };
    const int pid = forkChild();
    EXPECT_FALSE(early);
    EXPECT_TRUE(hasPassedWithin(10'000));
    EXPECT_EQ(endOf(pid), passedStatus << 8);
}

TEST_F(ForkHandshake, AChildThatWasKilledBeforeItsReleaseLeavesNothingToTheNext) {
    for (int i = 0; i < 3; ++i) {
        whileTheBarrierIsMade = [](int pid) {
            kill(pid, SIGKILL);
            siginfo_t info{};
            waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT);
        };
        EXPECT_EQ(endOf(forkChild()), SIGKILL);
    }
    bool early = true;
    whileTheBarrierIsMade = [&](int) { early = hasPassedWithin(300); };
    const int pid = forkChild();
    EXPECT_FALSE(early) << "it took a release that was meant for a dead child";
    EXPECT_TRUE(hasPassedWithin(10'000));
    EXPECT_EQ(endOf(pid), passedStatus << 8);
}

// The same with real timing: each new child is killed at any moment of its start.
TEST_F(ForkHandshake, NoChildIsEarlyAmongManyThatAreKilledAtOnce) {
    int early = 0;
    for (int i = 0; i < 60; ++i) {
        whileTheBarrierIsMade = nullptr;
        const int killed = forkChild();
        kill(killed, SIGKILL);
        endOf(killed);
        char byte = 0;
        while (hasPassedWithin(0))
            ASSERT_EQ(::read(passed_[0], &byte, 1), 1);
        whileTheBarrierIsMade = [&](int) { early += hasPassedWithin(10) ? 1 : 0; };
        EXPECT_EQ(endOf(forkChild()), passedStatus << 8);
        ASSERT_EQ(::read(passed_[0], &byte, 1), 1);
    }
    EXPECT_EQ(early, 0);
}

} // namespace

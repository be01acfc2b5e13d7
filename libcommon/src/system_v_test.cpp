// A kill at any moment leaves no System V object that the next start or a sweep would not find.
#include <libcommon/events.h>
#include <libcommon/semaphores.h>
#include <libcommon/sweep.h>

#include "libcommon/src/appliance_fixture.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <sched.h>
#include <sys/msg.h>
#include <sys/ptrace.h>
#include <sys/sem.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

enum class Killed { yes, no, cantBeTraced };

class SystemVObjects : public ApplianceTest {
protected:
    void SetUp() override {
        if (unshare(CLONE_NEWIPC) != 0)
            GTEST_SKIP() << "no separate System V objects here: " << std::strerror(errno);
        ASSERT_EQ(objects(), 0);
    }

    // Queues and sets in this test's own namespace.
    static int objects() {
        int count = -2; // the headings
        for (const char* name : {"/proc/sysvipc/msg", "/proc/sysvipc/sem"}) {
            std::ifstream list(name);
            for (std::string line; std::getline(list, line);)
                ++count;
        }
        return count;
    }

    // Runs `act` in a child and kills it when it enters or leaves its system call number `stops` / 2.
    static Killed killAt(int stops, const std::function<int()>& act) {
        const pid_t child = start([&] {
            if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
                return 98;
            raise(SIGSTOP);
            return act();
        });
        int status = 0;
        waitpid(child, &status, 0);
        if (WIFEXITED(status))
            return Killed::cantBeTraced;
        for (int i = 0; i < stops; ++i) {
            ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
            waitpid(child, &status, 0);
            if (!WIFSTOPPED(status)) {
                EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
                return Killed::no;
            }
        }
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
        return Killed::yes;
    }

    // Kills `act` at each of its steps, then `tidy` must leave no object. `before` runs before each kill.
    static void killAtEachStep(
        const std::function<int()>& act, const std::function<int()>& tidy,
        const std::function<int()>& before = [] { return 0; }) {
        Killed killed = Killed::yes;
        int step = 0;
        int left = 0;
        for (; killed == Killed::yes; ++step) {
            ASSERT_EQ(inChild(before), 0);
            killed = killAt(step, act);
            if (killed == Killed::cantBeTraced)
                GTEST_SKIP() << "child processes can't be traced here";
            left += objects() > 0 ? 1 : 0;
            ASSERT_EQ(inChild(tidy), 0) << "after a kill at step " << step;
            ASSERT_EQ(objects(), 0) << "after a kill at step " << step;
        }
        // Otherwise nothing was tested.
        EXPECT_GT(step, 20);
        EXPECT_GT(left, 5);
    }

    static int sweepAll() { return sweep(); }
};

TEST_F(SystemVObjects, AKillWhileTheEventQueueIsMadeLeavesNoneAfterASweep) {
    killAtEachStep([] { return initEventQueue(); }, sweepAll);
}

TEST_F(SystemVObjects, AKillWhileTheEventQueueIsMadeLeavesNoneAfterTheNextStart) {
    killAtEachStep([] { return initEventQueue(); },
                   [] {
                       const int result = initEventQueue();
                       removeEventQueue();
                       return result;
                   });
}

TEST_F(SystemVObjects, AKillWhileTheSemaphoresAreMadeLeavesNoneAfterASweep) {
    killAtEachStep([] { return semaphoreInit(2000); }, sweepAll);
}

TEST_F(SystemVObjects, AKillWhileTheSemaphoresAreMadeIsRepairedByTheNextUse) {
    killAtEachStep([] { return semaphoreInit(2000); },
                   [] {
                       const bool one = semaphoreSet(2001, 5) == 0 && objects() == 1;
                       return one ? sweep() : 1;
                   });
}

TEST_F(SystemVObjects, AKillDuringASweepIsRepairedByTheNextOne) {
    killAtEachStep(sweepAll, sweepAll, [] { return initEventQueue() + semaphoreInit(2000); });
}

// Barriers have keys of another range, so that a damaged note never names one.
TEST_F(SystemVObjects, ABarriersQueueIsNeverTakenForAnUnrecordedOne) {
    const key_t barrierKey = 0x00fe1234;
    const int queue = msgget(barrierKey, IPC_CREAT | 0660);
    write(file("/run/decoder/events.making.id"), std::to_string(barrierKey) + " 1 0\n");
    EXPECT_EQ(sweep(), 0);
    msqid_ds state{};
    EXPECT_EQ(msgctl(queue, IPC_STAT, &state), 0);
    EXPECT_FALSE(exists(file("/run/decoder/events.making.id")));
}

} // namespace

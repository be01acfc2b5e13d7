#include <libcommon/semaphores.h>

#include "libcommon/src/appliance_fixture.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <set>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

class Semaphores : public ApplianceTest {
protected:
    static std::string idFile() { return file("/run/decoder/semaphores.id"); }
    static int setId() {
        int id = -1;
        EXPECT_EQ(std::sscanf(read(idFile()).c_str(), "%d", &id), 1);
        return id;
    }
    static int value(int id) { return semctl(setId(), id - 2000, GETVAL); }
    static bool setExists(int set) { return semctl(set, 0, GETVAL) >= 0; }
    // Waits until that many processes sleep at the semaphore; false after ten seconds.
    static bool sleepersAre(int id, int count) {
        for (int i = 0; i < 10000; ++i) {
            if (semctl(setId(), id - 2000, GETNCNT) == count)
                return true;
            usleep(1000);
        }
        return false;
    }
};

TEST_F(Semaphores, CountUpAndDown) {
    ASSERT_EQ(semaphoreInit(2001), 0);
    EXPECT_EQ(value(2001), 0);
    EXPECT_EQ(semaphoreIncrease(2001), 0);
    EXPECT_EQ(semaphoreIncrease(2001), 0);
    EXPECT_EQ(value(2001), 2);
    EXPECT_EQ(semaphoreDecrease(2001), 0);
    EXPECT_EQ(value(2001), 1);
    EXPECT_EQ(semaphoreSet(2001, 32767), 0);
    EXPECT_EQ(value(2001), 32767);
    EXPECT_EQ(semaphoreSet(2001, 0), 0);
    EXPECT_EQ(value(2001), 0);
    EXPECT_EQ(log(), "");
}

TEST_F(Semaphores, AreThirtyTwoOfTheirOwnAndBeginAtZero) {
    for (int id = 2000; id < 2032; ++id)
        ASSERT_EQ(semaphoreIncrease(id), 0) << id;
    for (int id = 2000; id < 2032; ++id)
        EXPECT_EQ(value(id), 1) << id;
    ASSERT_EQ(semaphoreInit(2005), 0);
    EXPECT_EQ(value(2005), 0);
    EXPECT_EQ(value(2006), 1);
}

TEST_F(Semaphores, CanBeUsedByTheUserAndTheGroupOnly) {
    ASSERT_EQ(semaphoreInit(2000), 0);
    semid_ds state{};
    union {
        semid_ds* state;
    } argument{&state};
    ASSERT_EQ(semctl(setId(), 0, IPC_STAT, argument), 0);
    EXPECT_EQ(state.sem_perm.mode & 0777, 0660);
    EXPECT_NE(state.sem_perm.__key, IPC_PRIVATE); // it can be found after a kill
    EXPECT_EQ(state.sem_nsems, 32U);
}

TEST_F(Semaphores, NumbersOutsideTheirRangeAreRefused) {
    for (const int id : {1999, 2032, 0, -1, INT_MAX, INT_MIN, 65536 + 2000}) {
        clearLog();
        EXPECT_EQ(semaphoreInit(id), -1);
        EXPECT_EQ(semaphoreSet(id, 1), -1);
        EXPECT_EQ(semaphoreIncrease(id), -1);
        EXPECT_EQ(semaphoreDecrease(id), -1);
        EXPECT_EQ(logCount("semaphore " + std::to_string(id) + ": there is none of that number."), 4U)
            << log();
    }
    EXPECT_FALSE(exists(idFile()));
}

TEST_F(Semaphores, ValuesOutsideTheirRangeAreRefused) {
    ASSERT_EQ(semaphoreSet(2000, 7), 0);
    for (const int bad : {-1, 32768, INT_MAX, INT_MIN}) {
        EXPECT_EQ(semaphoreSet(2000, bad), -1);
        EXPECT_EQ(
            logCount("Failed to set semaphore 2000: it can't have the value " + std::to_string(bad) + "."),
            1U);
    }
    EXPECT_EQ(value(2000), 7);
    ASSERT_EQ(semaphoreSet(2000, 32767), 0);
    EXPECT_EQ(semaphoreIncrease(2000), -1);
    EXPECT_EQ(logCount("Failed to increase semaphore 2000. (errno=34 Numerical result out of range)"), 1U)
        << log();
    EXPECT_EQ(value(2000), 32767);
}

// As at a player's start: the child waits until its parent has entered it into the child list.
TEST_F(Semaphores, AForkedChildWaitsForItsParent) {
    ASSERT_EQ(semaphoreInit(2002), 0);
    const Signpost passed;
    const pid_t child = start([&] {
        const int result = semaphoreDecrease(2002);
        passed.reach();
        return result;
    });
    ASSERT_TRUE(sleepersAre(2002, 1));
    EXPECT_FALSE(passed.isReached());
    ASSERT_EQ(semaphoreIncrease(2002), 0);
    EXPECT_EQ(finish(child), 0);
    EXPECT_EQ(value(2002), 0);
}

TEST_F(Semaphores, WorkBetweenForkAndExecWhileThreadsUseThem) {
    std::atomic<bool> stop{false};
    std::thread other([&] {
        while (!stop) {
            semaphoreIncrease(2010);
            semaphoreDecrease(2010);
        }
    });
    ASSERT_EQ(semaphoreInit(2002), 0);
    for (int i = 0; i < 100; ++i) {
        const pid_t child = start([] { return semaphoreDecrease(2002); });
        ASSERT_EQ(semaphoreIncrease(2002), 0);
        ASSERT_EQ(finish(child), 0);
    }
    stop = true;
    other.join();
    EXPECT_EQ(value(2002), 0);
}

TEST_F(Semaphores, WaitingContinuesAfterSignals) {
    ASSERT_EQ(semaphoreInit(2003), 0);
    const Signpost ready;
    const pid_t child = start([&] {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        sigaction(SIGUSR1, &action, nullptr);
        ready.reach();
        return semaphoreDecrease(2003);
    });
    ready.await();
    ASSERT_TRUE(sleepersAre(2003, 1));
    for (int i = 0; i < 20; ++i)
        kill(child, SIGUSR1);
    ASSERT_TRUE(sleepersAre(2003, 1));
    ASSERT_EQ(semaphoreIncrease(2003), 0);
    EXPECT_EQ(finish(child), 0);
}

TEST_F(Semaphores, OutliveTheProcessesThatUseThem) {
    EXPECT_EQ(inChild([] { return semaphoreSet(2004, 5); }), 0);
    EXPECT_EQ(inChild([] { return semaphoreDecrease(2004); }), 0);
    EXPECT_EQ(value(2004), 4);
}

TEST_F(Semaphores, TheFirstProcessMakesTheOnlySet) {
    for (int round = 0; round < 20; ++round) {
        const auto results = inChildren(6, [](int) { return semaphoreIncrease(2000); });
        EXPECT_EQ(results, std::vector<int>(6, 0));
        ASSERT_EQ(value(2000), 6);
        ASSERT_EQ(sweep(), 0);
        ASSERT_FALSE(exists(idFile()));
    }
}

TEST_F(Semaphores, AFileThatNamesNoSetOfOursIsReplaced) {
    const int foreign = semget(IPC_PRIVATE, 32, IPC_CREAT | 0660);
    const int small = semget(IPC_PRIVATE, 2, IPC_CREAT | 0660);
    for (const std::string& text : {std::string(), std::string("garbage\n"), std::string("-1 1 1\n"),
                                    std::string("999999 1 1\n"), std::to_string(foreign) + " 1 12345\n",
                                    std::to_string(small) + " 1 12345\n", std::string(1 << 20, '1')}) {
        write(idFile(), text);
        // In a child: a process that has found the set once keeps it.
        EXPECT_EQ(inChild([] { return semaphoreSet(2000, 3); }), 0) << text.substr(0, 50);
        EXPECT_NE(setId(), foreign);
        EXPECT_NE(setId(), small);
        EXPECT_EQ(value(2000), 3);
        EXPECT_EQ(sweep(), 0);
    }
    EXPECT_EQ(semctl(foreign, 0, GETVAL), 0);
    semctl(foreign, 0, IPC_RMID);
    semctl(small, 0, IPC_RMID);
}

TEST_F(Semaphores, AMissingSetIsMadeAgainAtTheNextUse) {
    ASSERT_EQ(semaphoreSet(2000, 3), 0);
    const int before = setId();
    ASSERT_EQ(semctl(before, 0, IPC_RMID), 0);
    EXPECT_EQ(semaphoreIncrease(2000), 0);
    EXPECT_NE(setId(), before);
    EXPECT_EQ(value(2000), 1);
    EXPECT_EQ(log(), "");
}

TEST_F(Semaphores, AWaitEndsWhenTheSetIsRemoved) {
    ASSERT_EQ(semaphoreInit(2000), 0);
    const pid_t child = start([] { return semaphoreDecrease(2000) == -1 && errno == EIDRM ? 0 : 1; });
    ASSERT_TRUE(sleepersAre(2000, 1));
    ASSERT_EQ(sweep(), 0);
    EXPECT_EQ(finish(child), 0);
    EXPECT_EQ(logCount("Failed to decrease semaphore 2000. (errno=43 Identifier removed)"), 1U) << log();
}

TEST_F(Semaphores, ARunDirectoryThatCantBeMadeIsReported) {
    write(file("/run"), "in the folder's place");
    EXPECT_EQ(semaphoreInit(2000), -1);
    EXPECT_EQ(logCount("Failed to make semaphore 2000. (errno=20 Not a directory)"), 1U) << log();
    std::remove(file("/run").c_str());
}

} // namespace

// The lock of the parameter files, between processes, threads and forks.
#include <libcommon/params.h>

#include "libcommon/src/appliance_fixture.h"

#include <libcommon/clock.h>
#include <libcommon/events.h>
#include <libcommon/log.h>

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <sys/file.h>
#include <thread>
#include <unistd.h>

namespace {

class ParamsLock : public ApplianceTest {
protected:
    static void set(const char* name, const char* value) { ParamWrapper(0, true)[name] = value; }
    static bool has(const char* name, const char* value) { return ParamWrapper(0, true)[name] == value; }

    static std::string lockFile() { return file("/etc/decoder/.decoder.conf.lock"); }

    // Whether another process could take the lock in that way now.
    static bool isFree(int operation) {
        const int fd = open(lockFile().c_str(), O_RDONLY);
        const bool free = fd < 0 || flock(fd, operation | LOCK_NB) == 0;
        close(fd);
        return free;
    }
};

TEST_F(ParamsLock, OtherProcessesWritesWaitAndOurOwnGoThrough) {
    set("A.x", "0");
    ASSERT_EQ(userOpenAndLockParamFile(0, 1), 0);
    const pid_t other = start([] {
        if (!has("A.x", "0")) // reading never waits
            return 1;
        set("A.x", "theirs");
        return has("A.y", "ours") ? 0 : 2;
    });
    ASSERT_TRUE(waitsForLock(other, lockFile()));
    set("A.y", "ours");
    EXPECT_TRUE(has("A.y", "ours"));
    EXPECT_TRUE(has("A.x", "0"));
    ASSERT_EQ(userCloseAndUnlockParamFile(0, 1), 0);
    EXPECT_EQ(finish(other), 0);
    EXPECT_TRUE(has("A.x", "theirs"));
    EXPECT_TRUE(has("A.y", "ours"));
    EXPECT_EQ(log(), "");
}

TEST_F(ParamsLock, AnotherProcessesLockIsWaitedFor) {
    const Signpost locked;
    const Signpost go;
    const pid_t holder = start([&] {
        userOpenAndLockParamFile(0, 1);
        locked.reach();
        go.await();
        set("A.x", "first");
        return userCloseAndUnlockParamFile(0, 1);
    });
    locked.await();
    const pid_t waiter = start([] {
        userOpenAndLockParamFile(0, 1);
        return has("A.x", "first") ? 0 : 1;
    });
    ASSERT_TRUE(waitsForLock(waiter, lockFile()));
    go.reach();
    EXPECT_EQ(finish(holder), 0);
    EXPECT_EQ(finish(waiter), 0);
}

TEST_F(ParamsLock, NestsWithinAProcess) {
    ASSERT_EQ(userOpenAndLockParamFile(0, 1), 0);
    ASSERT_EQ(userOpenAndLockParamFile(0, 1), 0);
    ASSERT_EQ(userOpenAndLockParamFile(0, 0), 0);
    EXPECT_FALSE(isFree(LOCK_SH));
    ASSERT_EQ(userCloseAndUnlockParamFile(0, 1), 0);
    set("A.x", "1");
    EXPECT_FALSE(isFree(LOCK_SH));
    ASSERT_EQ(userCloseAndUnlockParamFile(0, 1), 0);
    EXPECT_TRUE(isFree(LOCK_SH)); // the shared one is left
    EXPECT_FALSE(isFree(LOCK_EX));
    set("A.x", "2");
    EXPECT_FALSE(isFree(LOCK_EX));
    EXPECT_TRUE(isFree(LOCK_SH));
    ASSERT_EQ(userCloseAndUnlockParamFile(0, 0), 0);
    EXPECT_TRUE(isFree(LOCK_EX));
    EXPECT_TRUE(has("A.x", "2"));
}

TEST_F(ParamsLock, ALockThatIsNotHeldCantBeReleased) {
    EXPECT_EQ(userCloseAndUnlockParamFile(0, 1), -1);
    EXPECT_EQ(logCount("Unlocking of parameter file 0 failed. (errno=22 Invalid argument)"), 1U);
    ASSERT_EQ(userOpenAndLockParamFile(0, 1), 0);
    EXPECT_EQ(userCloseAndUnlockParamFile(0, 0), -1);
    EXPECT_EQ(userCloseAndUnlockParamFile(1, 1), -1);
    EXPECT_FALSE(isFree(LOCK_SH));
    EXPECT_EQ(userCloseAndUnlockParamFile(0, 1), 0);
}

TEST_F(ParamsLock, SharedLocksCoexistAndBlockWriters) {
    ASSERT_EQ(userOpenAndLockParamFile(0, 0), 0);
    EXPECT_EQ(inChild([] { return userOpenAndLockParamFile(0, 0); }), 0);
    const pid_t writer = start([] {
        set("A.x", "theirs");
        return 0;
    });
    ASSERT_TRUE(waitsForLock(writer, lockFile()));
    set("A.y", "ours");
    ASSERT_EQ(userCloseAndUnlockParamFile(0, 0), 0);
    EXPECT_EQ(finish(writer), 0);
    EXPECT_TRUE(has("A.x", "theirs"));
    EXPECT_TRUE(has("A.y", "ours"));
}

TEST_F(ParamsLock, ADeadHoldersLockIsFree) {
    const Signpost locked;
    const pid_t holder = start([&] {
        userOpenAndLockParamFile(0, 1);
        locked.reach();
        pause();
        return 0;
    });
    locked.await();
    EXPECT_FALSE(isFree(LOCK_SH));
    kill(holder, SIGKILL);
    finish(holder);
    EXPECT_TRUE(isFree(LOCK_EX));
}

// ---- A holder that was stopped.

class Stopped : public ParamsLock {
protected:
    // A process that was stopped while it held the lock, as by a user's Ctrl-Z.
    Stopped() {
        const Signpost locked;
        holder_ = start([&] {
            userOpenAndLockParamFile(0, 1);
            locked.reach();
            pause();
            return 0;
        });
        locked.await();
        kill(holder_, SIGSTOP);
        initEventQueue(); // this process is the supervisor from now on
        began_ = gettimeusec();
    }
    ~Stopped() override {
        kill(holder_, SIGKILL);
        finish(holder_);
        removeEventQueue();
    }
    double seconds() const { return static_cast<double>(gettimeusec() - began_) / 1e6; }

    pid_t holder_;
    std::int64_t began_;
};

TEST_F(Stopped, AWriteGivesUpAfterASecondAndNamesTheHolder) {
    write(parameterFile(0), "[A]\nx = old\n");
    set("A.x", "new");
    EXPECT_GE(seconds(), 0.9);
    EXPECT_LT(seconds(), 10);
    EXPECT_TRUE(has("A.x", "old"));
    EXPECT_EQ(
        logCount("Failed to write \"A.x\" to " + parameterFile(0) + ": process " + std::to_string(holder_) +
                 " (libcommon_param) holds its lock; the value is lost. (errno=110 Connection timed out)"),
        1U)
        << log();
    EXPECT_EQ(logCount(""), 1U) << log();
    set("A.x", "new"); // and the next one does not fail for another reason
    EXPECT_EQ(logCount("(errno=110"), 2U) << log();
}

TEST_F(Stopped, AWriteOfTheSameValueDoesNotWait) {
    write(parameterFile(0), "[A]\nx = 1\n");
    set("A.x", "1");
    ParamWrapper(0, true)["A.x"] = 1;
    EXPECT_LT(seconds(), 0.9);
    EXPECT_EQ(log(), "");
}

TEST_F(Stopped, AProgramOfAUserIsMorePatient) {
    EXPECT_EQ(inChild([] {
                  set("A.x", "new");
                  return 0;
              }),
              0);
    EXPECT_GE(seconds(), 4.9);
    EXPECT_LT(seconds(), 25);
    EXPECT_EQ(logCount("the value is lost. (errno=110 Connection timed out)"), 1U) << log();
}

TEST_F(Stopped, LockingGivesUpAndNamesTheHolder) {
    EXPECT_EQ(userOpenAndLockParamFile(0, 0), -1);
    EXPECT_EQ(logCount("Locking of parameter file 0 failed: process " + std::to_string(holder_) +
                       " (libcommon_param) holds its lock. (errno=110 Connection timed out)"),
              1U)
        << log();
    EXPECT_EQ(userCloseAndUnlockParamFile(0, 0), -1); // nothing is held
}

TEST_F(Stopped, ReadingNeverWaits) {
    write(parameterFile(0), "[A]\nx = old\n[Encoder.a]\nAddress = 1\n");
    for (int i = 0; i < 100; ++i) {
        EXPECT_TRUE(has("A.x", "old"));
        EXPECT_EQ(getSubGroups(0, "Encoder").size(), 1U);
    }
    EXPECT_LT(seconds(), 0.9);
    EXPECT_EQ(log(), "");
}

// The supervisor's main thread blocks these two while it works. One that is pending must not wait for the lock.
TEST_F(Stopped, TheMainThreadLetsPendingSignalsInWhileItWaits) {
    EXPECT_EQ(inChild([&] {
                  static std::atomic<int> handled{0};
                  sigset_t blocked;
                  sigemptyset(&blocked);
                  for (const int signo : {SIGINT, SIGCHLD, SIGTERM}) {
                      std::signal(signo, [](int) { ++handled; });
                      sigaddset(&blocked, signo);
                  }
                  sigprocmask(SIG_BLOCK, &blocked, nullptr);
                  initEventQueue(); // only the supervisor waits that short
                  for (const int signo : {SIGINT, SIGCHLD, SIGTERM})
                      raise(signo);
                  set("A.x", "new");
                  return handled.load();
              }),
              2); // not SIGTERM
}

TEST_F(ParamsLock, AForkedChildDoesNotInheritTheLock) {
    ASSERT_EQ(userOpenAndLockParamFile(0, 1), 0);
    const pid_t child = start([] {
        set("A.x", "child");
        return has("A.y", "parent") ? 0 : 1;
    });
    ASSERT_TRUE(waitsForLock(child, lockFile()));
    set("A.y", "parent");
    ASSERT_EQ(userCloseAndUnlockParamFile(0, 1), 0);
    EXPECT_EQ(finish(child), 0);
    EXPECT_TRUE(has("A.x", "child"));
}

// A child that was forked while the lock was held has the lock file open; it must not keep the lock.
TEST_F(ParamsLock, AChildThatLivesOnDoesNotKeepTheParentsLock) {
    ASSERT_EQ(userOpenAndLockParamFile(0, 1), 0);
    const Signpost go;
    const pid_t child = start([&] {
        go.await();
        return 0;
    });
    ASSERT_EQ(userCloseAndUnlockParamFile(0, 1), 0);
    EXPECT_TRUE(isFree(LOCK_EX));
    go.reach();
    EXPECT_EQ(finish(child), 0);
}

TEST_F(ParamsLock, AFileThatCantBeLockedIsReported) {
    write(file("/etc"), "in the folder's place");
    EXPECT_EQ(userOpenAndLockParamFile(0, 1), -1);
    EXPECT_EQ(
        logCount("Locking of parameter file 0 failed: its lock can't be taken. (errno=20 Not a directory)"),
        1U)
        << log();
    EXPECT_EQ(userCloseAndUnlockParamFile(0, 1), -1);
}

TEST_F(ParamsLock, ThreadsOfOneProcessWriteOneAfterTheOther) {
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < 50; ++i)
                ParamWrapper(1, true)[("A.t" + std::to_string(t) + "n" + std::to_string(i)).c_str()] = i;
        });
    for (std::thread& thread : threads)
        thread.join();
    for (int t = 0; t < 4; ++t)
        for (int i = 0; i < 50; ++i)
            EXPECT_EQ(
                ParamWrapper(1, true)[("A.t" + std::to_string(t) + "n" + std::to_string(i)).c_str()].toInt(),
                i);
}

// The button thread reads a parameter all the time, the main thread forks players that read parameters and
// log before they run their program.
TEST_F(ParamsLock, AChildReadsAndLogsWhileOtherThreadsDoSoAtTheFork) {
    write(parameterFile(0), "[Decoder]\nVideoMode = pal\n");
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    threads.emplace_back([&] {
        const ParamWrapper params(0, true);
        while (!stop)
            EXPECT_TRUE(params["Decoder.VideoMode"] == "pal");
    });
    threads.emplace_back([&] {
        while (!stop)
            logmsg(7, "busy");
    });
    threads.emplace_back([&] {
        while (!stop)
            write(parameterFile(1), "[A]\nx = 1\n"), ParamWrapper(1, true)["A.x"].toInt();
    });
    for (int i = 0; i < 60; ++i) {
        const int result = inChild([] {
            logmsg(3, "child");
            return ParamWrapper(0, true)["Decoder.VideoMode"] == "pal" ? 0 : 1;
        });
        ASSERT_EQ(result, 0) << i;
    }
    stop = true;
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(logCount("] 3 child"), 60U);
}

} // namespace

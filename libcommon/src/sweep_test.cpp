#include <libcommon/sweep.h>

#include "libcommon/src/appliance_fixture.h"

#include <libcommon/events.h>
#include <libcommon/semaphores.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

class Sweeping : public ApplianceTest {
protected:
    Sweeping() { write(lockFile(), ""); }
    ~Sweeping() override {
        for (const int queue : queues_)
            msgctl(queue, IPC_RMID, nullptr);
        for (const pid_t player : players_) {
            kill(player, SIGKILL);
            waitpid(player, nullptr, 0);
        }
    }

    static std::string lockFile() { return file("/run/decoder/skelmor.lock"); }
    static std::string barrierFile(pid_t pid) { return file("/var/tmp/barrier." + std::to_string(pid)); }
    static int idIn(const std::string& name) {
        int id = -1;
        EXPECT_EQ(std::sscanf(read(file("/run/decoder/" + name)).c_str(), "%d", &id), 1);
        return id;
    }
    static bool queueExists(int queue) {
        msqid_ds state{};
        return msgctl(queue, IPC_STAT, &state) == 0;
    }
    static pid_t deadPid() {
        const pid_t child = start([] { return 0; });
        finish(child);
        return child;
    }
    static void makeOlder(const std::string& path, time_t seconds) {
        const timespec when{.tv_sec = std::time(nullptr) - seconds, .tv_nsec = 0};
        const timespec times[] = {when, when};
        ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    }

    int makeBarrier(pid_t pid) {
        write(barrierFile(pid), "");
        const int queue = msgget(ftok(barrierFile(pid).c_str(), 0), IPC_CREAT | 0666);
        EXPECT_GE(queue, 0);
        queues_.push_back(queue);
        return queue;
    }

    // A program with this root in its environment, as a player is.
    pid_t startPlayer(const std::string& root) {
        const std::string variable = "APPLIANCE_ROOT=" + root;
        int ready[2] = {};
        EXPECT_EQ(pipe2(ready, O_CLOEXEC), 0);
        const pid_t player = fork();
        if (player == 0) {
            execle("/bin/sleep", "sleep", "60", nullptr,
                   std::vector<const char*>{variable.c_str(), nullptr}.data());
            _exit(1);
        }
        close(ready[1]);
        char none = 0;
        EXPECT_EQ(::read(ready[0], &none, 1), 0); // closed by the exec
        close(ready[0]);
        players_.push_back(player);
        return player;
    }

    static bool runs(pid_t child) { return waitpid(child, nullptr, WNOHANG) == 0; }

private:
    std::vector<int> queues_;
    std::vector<pid_t> players_;
};

TEST_F(Sweeping, NothingToSweepIsNoFailure) {
    libcommon::Sweep done;
    EXPECT_EQ(libcommon::sweep(done), 0);
    EXPECT_EQ(done.supervisor, -1);
    EXPECT_EQ(done.players + done.barriers + done.queues + done.semaphoreSets + done.files + done.failures,
              0);
    EXPECT_EQ(log(), "");
}

TEST_F(Sweeping, RemovesTheSetTheLeftQueueAndTheirFiles) {
    ASSERT_EQ(semaphoreInit(2000), 0);
    ASSERT_EQ(inChild([] { return initEventQueue(); }), 0); // and dies without removing it
    const int queue = idIn("events.id");
    const int set = idIn("semaphores.id");
    libcommon::Sweep done;
    EXPECT_EQ(libcommon::sweep(done), 0);
    EXPECT_EQ(done.queues, 1);
    EXPECT_EQ(done.semaphoreSets, 1);
    EXPECT_EQ(semctl(set, 0, GETVAL), -1);
    EXPECT_FALSE(queueExists(queue));
    EXPECT_FALSE(exists(file("/run/decoder/events.id")));
    EXPECT_FALSE(exists(file("/run/decoder/semaphores.id")));
    EXPECT_EQ(libcommon::sweep(done), 0);
    EXPECT_EQ(done.queues + done.semaphoreSets, 0);
    EXPECT_EQ(log(), "");
}

TEST_F(Sweeping, ForeignObjectsAreLeftAlone) {
    const int set = semget(IPC_PRIVATE, 32, IPC_CREAT | 0660);
    const int queue = msgget(IPC_PRIVATE, IPC_CREAT | 0660);
    write(file("/run/decoder/semaphores.id"), std::to_string(set) + " 1 1\n");
    write(file("/run/decoder/events.id"), std::to_string(queue) + " 1 1\n");
    libcommon::Sweep done;
    EXPECT_EQ(libcommon::sweep(done), 0);
    EXPECT_EQ(done.queues + done.semaphoreSets, 0);
    EXPECT_GE(semctl(set, 0, GETVAL), 0);
    EXPECT_TRUE(queueExists(queue));
    semctl(set, 0, IPC_RMID);
    msgctl(queue, IPC_RMID, nullptr);
}

// ---- A supervisor that lives.

TEST_F(Sweeping, WhileASupervisorHoldsTheOwnerLockNothingIsRemoved) {
    ASSERT_EQ(semaphoreInit(2000), 0);
    const int set = idIn("semaphores.id");
    const Signpost ready;
    const Signpost stop;
    const pid_t supervisor = start([&] {
        const int fd = open(lockFile().c_str(), O_RDWR | O_TRUNC);
        const std::string pid = std::to_string(getpid()) + "\n";
        if (flock(fd, LOCK_EX | LOCK_NB) != 0 || ::write(fd, pid.data(), pid.size()) < 0)
            return 1;
        ready.reach();
        stop.await();
        return 0;
    });
    ready.await();
    libcommon::Sweep done;
    EXPECT_EQ(libcommon::sweep(done), -1);
    EXPECT_EQ(errno, EBUSY);
    EXPECT_EQ(done.supervisor, supervisor);
    EXPECT_GE(semctl(set, 0, GETVAL), 0);
    stop.reach();
    EXPECT_EQ(finish(supervisor), 0);
    EXPECT_EQ(libcommon::sweep(done), 0);
    EXPECT_EQ(done.supervisor, -1);
    EXPECT_EQ(semctl(set, 0, GETVAL), -1);
}

TEST_F(Sweeping, ALockWhoseOwnerIsUnknownIsRespected) {
    const int held = open(lockFile().c_str(), O_RDONLY);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    libcommon::Sweep done;
    EXPECT_EQ(libcommon::sweep(done), -1);
    EXPECT_EQ(errno, EBUSY);
    EXPECT_EQ(done.supervisor, 0);
    close(held);
}

TEST_F(Sweeping, WithoutALockFileTheQueuesOwnerIsTheSupervisor) {
    ASSERT_EQ(unlink(lockFile().c_str()), 0);
    const Signpost ready;
    const Signpost stop;
    const pid_t supervisor = start([&] {
        const int result = initEventQueue();
        ready.reach();
        stop.await();
        return result;
    });
    ready.await();
    libcommon::Sweep done;
    EXPECT_EQ(libcommon::sweep(done), -1);
    EXPECT_EQ(errno, EBUSY);
    EXPECT_EQ(done.supervisor, supervisor);
    EXPECT_TRUE(queueExists(idIn("events.id")));
    stop.reach();
    EXPECT_EQ(finish(supervisor), 0);
    EXPECT_EQ(libcommon::sweep(done), 0);
    EXPECT_EQ(done.queues, 1);
}

TEST_F(Sweeping, WhatIsInTheLockFilesPlaceIsNeitherOpenedNorFollowed) {
    ASSERT_EQ(unlink(lockFile().c_str()), 0);
    ASSERT_EQ(symlink("/dev/null", lockFile().c_str()), 0);
    libcommon::Sweep done;
    EXPECT_EQ(libcommon::sweep(done), -1);
    EXPECT_EQ(errno, ELOOP);
    ASSERT_EQ(unlink(lockFile().c_str()), 0);
    ASSERT_EQ(mkfifo(lockFile().c_str(), 0600), 0);
    EXPECT_EQ(libcommon::sweep(done), 0); // it can be locked like a file
}

// ---- Barriers and players.

TEST_F(Sweeping, RemovesTheBarriersOfDeadPlayers) {
    const pid_t player = deadPid();
    const int queue = makeBarrier(player);
    const pid_t another = deadPid();
    write(barrierFile(another), ""); // its queue is gone
    libcommon::Sweep done;
    EXPECT_EQ(libcommon::sweep(done), 0);
    EXPECT_EQ(done.barriers, 2);
    EXPECT_EQ(done.queues, 1);
    EXPECT_EQ(done.players, 0);
    EXPECT_FALSE(queueExists(queue));
    EXPECT_FALSE(exists(barrierFile(player)));
    EXPECT_FALSE(exists(barrierFile(another)));
}

TEST_F(Sweeping, KillsPlayersThatOutlivedTheirSupervisor) {
    const pid_t player = startPlayer(file(""));
    ASSERT_EQ(kill(player, SIGSTOP), 0); // one that hangs would not notice that its barrier is gone
    const int queue = makeBarrier(player);
    libcommon::Sweep done;
    EXPECT_EQ(libcommon::sweep(done), 0);
    EXPECT_EQ(done.players, 1);
    EXPECT_EQ(done.barriers, 1);
    EXPECT_EQ(done.queues, 1);
    EXPECT_FALSE(queueExists(queue));
    EXPECT_EQ(finish(player), 100 + SIGKILL);
}

TEST_F(Sweeping, AProcessOfAnotherRootIsNotKilled) {
    const pid_t other = startPlayer(file("/another"));
    makeBarrier(other);
    libcommon::Sweep done;
    EXPECT_EQ(libcommon::sweep(done), 0);
    EXPECT_EQ(done.players, 0);
    EXPECT_EQ(done.barriers, 1);
    EXPECT_TRUE(runs(other));
}

TEST_F(Sweeping, AProcessThatGotADeadPlayersPidIsNotKilled) {
    const pid_t younger = startPlayer(file(""));
    write(barrierFile(younger), "");
    makeOlder(barrierFile(younger), 60);
    libcommon::Sweep done;
    EXPECT_EQ(libcommon::sweep(done), 0);
    EXPECT_EQ(done.players, 0);
    EXPECT_EQ(done.barriers, 1);
    EXPECT_TRUE(runs(younger));
}

TEST_F(Sweeping, AQueueThatOnlyHasTheSameKeyIsLeftAlone) {
    const pid_t player = deadPid();
    const int queue = makeBarrier(player);
    makeOlder(barrierFile(player), 3600);
    libcommon::Sweep done;
    EXPECT_EQ(libcommon::sweep(done), 0);
    EXPECT_EQ(done.barriers, 1);
    EXPECT_EQ(done.queues, 0);
    EXPECT_TRUE(queueExists(queue));
}

TEST_F(Sweeping, OtherFilesInTheBarriersFolderStay) {
    const std::vector<std::string> names = {"barrier.", "barrier.12x", "barrier", "barrier.1.2", "other.12"};
    for (const std::string& name : names)
        write(file("/var/tmp/" + name), "");
    ASSERT_EQ(symlink(file("/log").c_str(), barrierFile(12).c_str()), 0);
    ASSERT_EQ(mkfifo(barrierFile(13).c_str(), 0600), 0);
    libcommon::Sweep done;
    EXPECT_EQ(libcommon::sweep(done), 0);
    EXPECT_EQ(done.barriers, 0);
    EXPECT_EQ(entries(file("/var/tmp")).size(), names.size() + 2);
}

TEST_F(Sweeping, BarrierFilesOfStrangersStay) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can give files away";
    const pid_t player = deadPid();
    const int queue = makeBarrier(player);
    ASSERT_EQ(chown(barrierFile(player).c_str(), 63117, 63117), 0);
    libcommon::Sweep done;
    EXPECT_EQ(libcommon::sweep(done), 0);
    EXPECT_EQ(done.barriers, 0);
    EXPECT_TRUE(queueExists(queue));
}

// ---- Files.

TEST_F(Sweeping, RemovesWhatKilledWritersLeft) {
    const std::string dead = std::to_string(deadPid());
    const std::string mine = std::to_string(getpid());
    const std::string stays = file("/run/decoder/source/0/.Model." + mine + "." + mine);
    write(file("/run/decoder/source/0/.Model." + dead + "." + dead), "x");
    write(file("/run/decoder/source/0/Model"), "x");
    write(file("/run/decoder/display/.line0." + dead + "." + dead), "x");
    write(stays, "x");
    write(file("/etc/decoder/.decoder.conf.new"), "x");
    makeOlder(file("/etc/decoder/.decoder.conf.new"), 60);
    write(file("/run/decoder/.info.conf.new"), "being written");
    write(file("/etc/decoder/.decoder.conf.lock"), "");
    makeOlder(file("/etc/decoder/.decoder.conf.lock"), 60);
    libcommon::Sweep done;
    EXPECT_EQ(libcommon::sweep(done), 0);
    EXPECT_EQ(done.files, 3);
    EXPECT_TRUE(exists(stays));
    EXPECT_TRUE(exists(file("/run/decoder/source/0/Model")));
    EXPECT_TRUE(exists(file("/run/decoder/.info.conf.new")));
    EXPECT_EQ(entries(file("/etc/decoder")), std::vector<std::string>{".decoder.conf.lock"});
}

TEST_F(Sweeping, WhatCantBeRemovedIsCountedAndLogged) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become another user";
    write(barrierFile(deadPid()), "");
    EXPECT_EQ(asUser(63117, 63117, {file("")},
                     [] {
                         libcommon::Sweep done;
                         const int result = libcommon::sweep(done);
                         return result == -1 && errno == EACCES && done.failures == 1 && done.barriers == 0
                                    ? 0
                                    : 1;
                     }),
              0);
    EXPECT_EQ(logCount("Failed to remove " + file("/var/tmp/barrier.")), 1U) << log();
}

} // namespace

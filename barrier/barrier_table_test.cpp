#include "barrier/barrier_table.h"

#include "process/signal_mask.h"
#include "tests/fakes/fake_libcommon.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <set>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

// Replaces calls of the C library in this program: each can fail with an errno, and none touches queue 0, which
// belongs to another program on the machine.
namespace {

int failFtok = 0;
int failMsgget = 0;
int failMsgctl = 0;
int failPopen = 0;
std::vector<std::string> commands;   // given to popen
std::vector<int> blockedForTheShell; // signals that were blocked when it was called
std::vector<int> removedQueues;      // given to msgctl with IPC_RMID

template<class Function>
Function* real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

int failWith(int error) {
    errno = error;
    return -1;
}

} // namespace

extern "C" key_t ftok(const char* path, int id) noexcept {
    return failFtok != 0 ? failWith(failFtok) : real<key_t(const char*, int)>("ftok")(path, id);
}

extern "C" int msgget(key_t key, int flags) noexcept {
    return failMsgget != 0 ? failWith(failMsgget) : real<int(key_t, int)>("msgget")(key, flags);
}

extern "C" int msgctl(int queue, int command, msqid_ds* data) noexcept {
    if (command == IPC_RMID)
        removedQueues.push_back(queue);
    if (failMsgctl != 0 || queue == 0)
        return failWith(failMsgctl != 0 ? failMsgctl : EINVAL);
    return real<int(int, int, msqid_ds*)>("msgctl")(queue, command, data);
}

extern "C" FILE* popen(const char* command, const char* type) {
    EXPECT_STREQ(type, "r");
    commands.emplace_back(command);
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    blockedForTheShell.clear();
    for (int signo = 1; signo < 32; ++signo)
        if (sigismember(&mask, signo) == 1)
            blockedForTheShell.push_back(signo);
    if (failPopen != 0) {
        errno = failPopen;
        return nullptr;
    }
    return real<FILE*(const char*, const char*)>("popen")(command, type);
}

namespace {

namespace fs = std::filesystem;
using Log = std::vector<fake::LogLine>;

// Not pids of real processes: the table does not check.
constexpr int player = 700001;
constexpr int other = 700002;

// A machine's first queue has number 0. This uses the number up, so that no test gets it.
void useUpQueueZero() {
    real<int(int, int, msqid_ds*)>("msgctl")(msgget(IPC_PRIVATE, 0600), IPC_RMID, nullptr);
}

struct BarrierTable : testing::Test {
    BarrierTable() {
        fake::reset();
        useUpQueueZero();
        removedQueues.clear();
        std::string name = (fs::temp_directory_path() / "barrier.XXXXXX").string();
        top = mkdtemp(name.data());
        useRoot(top);
        // As the library does for players.
        fake::onGetBarrierIPC = [](int pid) {
            const key_t key = ftok(barrierFileName(pid).c_str(), 0);
            return key == -1 ? -1 : msgget(key, 0);
        };
    }
    ~BarrierTable() override {
        failFtok = failMsgget = failMsgctl = failPopen = 0;
        for (const int queue : made)
            msgctl(queue, IPC_RMID, nullptr);
        fs::remove_all(top);
    }

    void useRoot(const fs::path& path) {
        root = path;
        setenv("APPLIANCE_ROOT", root.c_str(), 1);
        fs::create_directories(root / "var/tmp");
    }

    // A barrier whose queue is removed at the end of the test.
    int make(int pid) {
        EXPECT_EQ(createBarrier(pid), 0);
        const int queue = barrierQueue(pid);
        made.insert(queue);
        removedQueues.clear();
        return queue;
    }

    bool fileExists(int pid) const { return fs::exists(root / ("var/tmp/barrier." + std::to_string(pid))); }

    fs::path top;
    fs::path root;
    std::set<int> made;
};

bool queueExists(int queue) {
    msqid_ds data{};
    return msgctl(queue, IPC_STAT, &data) == 0;
}

std::string errorText(int error) {
    return "(errno=" + std::to_string(error) + " " + std::strerror(error) + ")";
}

} // namespace

TEST_F(BarrierTable, TheFileIsNamedAfterThePid) {
    EXPECT_EQ(barrierFileName(117), root.string() + "/var/tmp/barrier.117");
    EXPECT_EQ(barrierFileName(-1), root.string() + "/var/tmp/barrier.-1");
    unsetenv("APPLIANCE_ROOT");
    EXPECT_EQ(barrierFileName(117), "/var/tmp/barrier.117");
}

TEST_F(BarrierTable, CreateMakesAnEmptyFileAndTheQueueThatThePlayerFinds) {
    std::ofstream(barrierFileName(player)) << "left by somebody";
    const int queue = make(player);
    EXPECT_TRUE(queueExists(queue));
    EXPECT_EQ(fs::file_size(barrierFileName(player)), 0U);
    EXPECT_EQ(msgget(ftok(barrierFileName(player).c_str(), 0), 0), queue);
    EXPECT_TRUE(fake::log.empty());
}

TEST_F(BarrierTable, ThePlayersAreThePidsThatABarrierWasMadeForLast) {
    EXPECT_FALSE(isPlayer(player));
    EXPECT_FALSE(isPlayer(0));
    failMsgget = ENOSPC; // a player without a barrier is still a player
    createBarrier(player);
    EXPECT_TRUE(isPlayer(player));
    for (int i = 1; i < 16; ++i)
        createBarrier(player + i);
    EXPECT_TRUE(isPlayer(player));
    createBarrier(player + 16);
    EXPECT_FALSE(isPlayer(player));
}

TEST_F(BarrierTable, AFullTableMakesRoomForTheNewest) {
    make(player);
    for (int i = 1; i <= 255; ++i)
        barrierQueue(player + i);
    EXPECT_NE(barrierQueue(player), 0) << "256 entries fit";
    const int newest = make(player + 256);
    EXPECT_EQ(barrierQueue(player + 256), newest);
    EXPECT_EQ(dropBarrier(player), -1) << "the oldest one made room";
    EXPECT_EQ(barrierQueue(player + 255), 0);
}

TEST_F(BarrierTable, CreateReplacesTheMappingOfAReusedPid) {
    const int first = make(player);
    fs::rename(barrierFileName(player), root / "var/tmp/kept"); // the new file gets another key
    const int second = make(player);
    EXPECT_NE(first, second);
    EXPECT_EQ(barrierQueue(player), second);
}

TEST_F(BarrierTable, AFileThatCannotBeCreatedIsLogged) {
    fs::remove(root / "var/tmp");
    EXPECT_EQ(createBarrier(player), -1);
    EXPECT_EQ(fake::log,
              (Log{{3, "Failed to create " + barrierFileName(player) + ". " + errorText(ENOENT) + "\n"}}));
}

TEST_F(BarrierTable, AFailingFtokIsLoggedAndTheFileStays) {
    failFtok = EACCES;
    EXPECT_EQ(createBarrier(player), -1);
    EXPECT_EQ(fake::log, (Log{{3, "Failed to ftok. " + errorText(EACCES) + "\n"}}));
    EXPECT_TRUE(fileExists(player));
}

TEST_F(BarrierTable, AFailingMsggetIsLoggedWithFileAndKeyAndTheFileStays) {
    failMsgget = ENOSPC;
    EXPECT_EQ(createBarrier(player), -1);
    const key_t key = ftok(barrierFileName(player).c_str(), 0);
    EXPECT_EQ(fake::log, (Log{{3, "Failed to msgget. " + errorText(ENOSPC) + " filename:" +
                                      barrierFileName(player) + " key:" + std::to_string(key) + "\n"}}));
    EXPECT_TRUE(fileExists(player));
    EXPECT_EQ(dropBarrier(player), -1); // it is not in the table
}

TEST_F(BarrierTable, RemoveDeletesFileAndQueue) {
    const int queue = make(player);
    EXPECT_EQ(removeBarrier(player), 0);
    EXPECT_FALSE(fileExists(player));
    EXPECT_FALSE(queueExists(queue));
    EXPECT_TRUE(fake::log.empty());
    EXPECT_EQ(dropBarrier(player), -1); // no longer in the table
}

TEST_F(BarrierTable, RemoveOfNoPlayerDeletesTheFileAndTriesQueueZero) {
    std::ofstream(barrierFileName(-1)) << "";
    EXPECT_EQ(removeBarrier(-1), -1);
    EXPECT_FALSE(fileExists(-1));
    EXPECT_EQ(removedQueues, (std::vector<int>{0}));
    EXPECT_EQ(fake::log, (Log{{3, "Could not remove Barrier msg queue for pid:-1 " + errorText(EINVAL)}}));
    removedQueues.clear();
    EXPECT_EQ(dropBarrier(-1), -1); // it was entered with queue 0 and stayed
    EXPECT_EQ(removedQueues, (std::vector<int>{0}));
}

TEST_F(BarrierTable, RemoveKeepsTheMappingWhenTheQueueCannotBeRemoved) {
    const int queue = make(player);
    failMsgctl = EPERM;
    EXPECT_EQ(removeBarrier(player), -1);
    failMsgctl = 0;
    EXPECT_EQ(fake::log, (Log{{3, "Could not remove Barrier msg queue for pid:700001 " + errorText(EPERM)}}));
    EXPECT_EQ(barrierQueue(player), queue);
}

TEST_F(BarrierTable, DropDeletesFileAndQueueAndMayBeRepeated) {
    const int queue = make(player);
    EXPECT_EQ(dropBarrier(player), 0);
    EXPECT_FALSE(fileExists(player));
    EXPECT_FALSE(queueExists(queue));
    EXPECT_EQ(dropBarrier(player), -1);
    EXPECT_EQ(removedQueues, (std::vector<int>{queue}));
    EXPECT_TRUE(fake::log.empty());
}

TEST_F(BarrierTable, DropOfAnUnknownPidDeletesItsFile) {
    std::ofstream(barrierFileName(other)) << "";
    EXPECT_EQ(dropBarrier(other), -1);
    EXPECT_FALSE(fileExists(other));
    EXPECT_TRUE(removedQueues.empty());
}

TEST_F(BarrierTable, DropForgetsThePidEvenWhenTheQueueCannotBeRemoved) {
    make(player);
    failMsgctl = EPERM;
    EXPECT_EQ(dropBarrier(player), -1);
    EXPECT_TRUE(fake::log.empty());
    failMsgctl = 0;
    EXPECT_EQ(barrierQueue(player), 0);
}

TEST_F(BarrierTable, AnUnknownPidIsLookedUpAsQueueZero) {
    EXPECT_EQ(barrierQueue(other), 0);
}

TEST_F(BarrierTable, TheSweepRemovesBarriersThatStillHaveAQueueAndLeavesTheRest) {
    const int queue = make(player);
    std::ofstream(barrierFileName(other)) << "";
    EXPECT_EQ(removeStaleBarriers(), 0);
    EXPECT_FALSE(queueExists(queue));
    EXPECT_FALSE(fileExists(player));
    EXPECT_TRUE(fileExists(other));
    EXPECT_EQ(fake::log, (Log{{7, "Found sprawling barrier. Removing barrier for PID 700001"}}));
}

TEST_F(BarrierTable, TheSweepsCommandIsUnquotedForAPlainRoot) {
    removeStaleBarriers();
    EXPECT_EQ(commands.back(), "ls -1 " + root.string() + "/var/tmp/barrier.*");
    unsetenv("APPLIANCE_ROOT");
    failPopen = ENOMEM;
    EXPECT_EQ(removeStaleBarriers(), -1);
    EXPECT_EQ(commands.back(), "ls -1 /var/tmp/barrier.*");
    EXPECT_EQ(fake::log, (Log{{3, "Couldn't popen(\"ls -1 /var/tmp/barrier.*\") " + errorText(ENOMEM)}}));
}

TEST_F(BarrierTable, TheSweepWorksBelowARootThatTheShellWouldExpand) {
    useRoot(top / "the decoder's $(touch oops) \"root\" *");
    const int queue = make(player);
    EXPECT_EQ(removeStaleBarriers(), 0);
    EXPECT_FALSE(queueExists(queue));
    EXPECT_FALSE(fileExists(player));
    EXPECT_FALSE(fs::exists("oops"));
}

TEST_F(BarrierTable, TheSweepFindsNothingInAnEmptyFolder) {
    EXPECT_EQ(removeStaleBarriers(), 0);
    EXPECT_TRUE(fake::log.empty());
}

TEST_F(BarrierTable, TheSweepContinuesWhenAQueueOrAFileCannotBeRemoved) {
    make(player);
    make(other);
    // When the first one is looked up, a folder that is not empty takes its place.
    fake::onGetBarrierIPC = [](int pid) {
        if (pid == player) {
            fs::remove(barrierFileName(player));
            fs::create_directories(barrierFileName(player) + "/full");
        }
        return barrierQueue(pid);
    };
    failMsgctl = EPERM;
    EXPECT_EQ(removeStaleBarriers(), 0);
    const std::string refused = " " + errorText(EPERM);
    EXPECT_EQ(fake::log, (Log{{7, "Found sprawling barrier. Removing barrier for PID 700001"},
                              {3, "Could not remove Barrier msg queue for pid:700001 queueid:" +
                                      std::to_string(barrierQueue(player)) + refused},
                              {3, "Failed to remove file " + barrierFileName(player)},
                              {7, "Found sprawling barrier. Removing barrier for PID 700002"},
                              {3, "Could not remove Barrier msg queue for pid:700002 queueid:" +
                                      std::to_string(barrierQueue(other)) + refused}}));
    EXPECT_FALSE(fileExists(other));
}

TEST_F(BarrierTable, ANameWithoutANumberIsLookedUpAsPidZero) {
    std::ofstream(root / "var/tmp/barrier.old") << "";
    std::vector<int> asked;
    fake::onGetBarrierIPC = [&](int pid) {
        asked.push_back(pid);
        return -1;
    };
    removeStaleBarriers();
    EXPECT_EQ(asked, (std::vector<int>{0}));
    EXPECT_TRUE(fs::exists(root / "var/tmp/barrier.old"));
}

TEST_F(BarrierTable, TheSweepsShellGetsSigchldButNotSigint) {
    blockSignalsWhileWorking();
    removeStaleBarriers();
    EXPECT_EQ(blockedForTheShell, (std::vector<int>{SIGINT}));
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGCHLD), 1);
    unblockAllSignals();
}

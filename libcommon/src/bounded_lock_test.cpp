#include "libcommon/src/bounded_lock.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace local;
using std::chrono::milliseconds;

class BoundedLock : public testing::Test {
protected:
    BoundedLock() {
        std::string name = "/tmp/bounded-lock-test-XXXXXX";
        folder_ = mkdtemp(name.data());
        path_ = folder_ + "/lock";
    }
    ~BoundedLock() override {
        unlink(path_.c_str());
        rmdir(folder_.c_str());
    }

    static struct stat stateOf(const std::string& path) {
        struct stat state {};
        EXPECT_EQ(stat(path.c_str(), &state), 0);
        return state;
    }

    std::string folder_;
    std::string path_;
};

TEST_F(BoundedLock, AFreeLockIsTakenAtOnce) {
    const int fd = openLockFile(path_.c_str());
    ASSERT_GE(fd, 0);
    EXPECT_TRUE(lockWithin(fd, LOCK_EX, milliseconds(0), SignalsInWait::kept));
    close(fd);
}

TEST_F(BoundedLock, ALockThatIsHeldIsGivenUpInTime) {
    const int held = openLockFile(path_.c_str());
    ASSERT_EQ(flock(held, LOCK_SH), 0);
    const int fd = openLockFile(path_.c_str());
    EXPECT_TRUE(lockWithin(fd, LOCK_SH, milliseconds(0), SignalsInWait::kept));
    const auto began = std::chrono::steady_clock::now();
    EXPECT_FALSE(lockWithin(fd, LOCK_EX, milliseconds(100), SignalsInWait::kept));
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_GE(std::chrono::steady_clock::now() - began, milliseconds(100));
    close(held);
    EXPECT_TRUE(lockWithin(fd, LOCK_EX, milliseconds(100), SignalsInWait::kept));
    close(fd);
}

TEST_F(BoundedLock, TheHolderIsFoundAmongManyLocks) {
    const pid_t holder = fork();
    if (holder == 0) {
        alarm(30);
        for (int i = 0; i < 200; ++i) {
            const int other = open((path_ + std::to_string(i)).c_str(), O_RDONLY | O_CREAT, 0600);
            flock(other, LOCK_EX);
            unlink((path_ + std::to_string(i)).c_str());
        }
        const int fd = openLockFile(path_.c_str());
        flock(fd, LOCK_EX);
        pause();
    }
    const int fd = openLockFile(path_.c_str());
    for (int i = 0; i < 10000 && flock(fd, LOCK_EX | LOCK_NB) == 0; ++i) {
        flock(fd, LOCK_UN);
        usleep(1000);
    }
    EXPECT_EQ(std::string(lockHolder(fd).text), "process " + std::to_string(holder) + " (libcommon_bound)");
    kill(holder, SIGKILL);
    waitpid(holder, nullptr, 0);
    EXPECT_EQ(std::string(lockHolder(fd).text), "another process");
    close(fd);
}

TEST_F(BoundedLock, TheLockFileIsForTheGroupThatMayWriteTheFolder) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can give files away";
    ASSERT_EQ(chown(folder_.c_str(), 63117, 63118), 0);
    for (const auto& [folder, expected] : {std::pair{0770, 0660}, {0775, 0660}, {0755, 0640}, {0777, 0660}}) {
        ASSERT_EQ(chmod(folder_.c_str(), folder), 0);
        const mode_t before = umask(0077);
        close(openLockFile(path_.c_str()));
        umask(before);
        EXPECT_EQ(stateOf(path_).st_gid, 63118U);
        EXPECT_EQ(stateOf(path_).st_mode & 07777, static_cast<unsigned>(expected));
        unlink(path_.c_str());
    }
}

TEST_F(BoundedLock, NeitherALinkNorAPipeHoldsUpOpening) {
    ASSERT_EQ(symlink("/dev/null", path_.c_str()), 0);
    EXPECT_EQ(openLockFile(path_.c_str()), -1);
    EXPECT_EQ(errno, ELOOP);
    unlink(path_.c_str());
    ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
    const int fd = openLockFile(path_.c_str());
    EXPECT_GE(fd, 0);
    EXPECT_TRUE(lockWithin(fd, LOCK_EX, milliseconds(0), SignalsInWait::kept));
    close(fd);
}

TEST_F(BoundedLock, MissingFoldersAreMade) {
    const std::string deep = folder_ + "/a/b/lock";
    const int fd = openLockFile(deep.c_str());
    EXPECT_GE(fd, 0);
    close(fd);
    unlink(deep.c_str());
    rmdir((folder_ + "/a/b").c_str());
    rmdir((folder_ + "/a").c_str());
}

} // namespace

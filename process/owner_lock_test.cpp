#include "process/owner_lock.h"

#include "tests/support/child_run.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using Result = OwnerLock::Result;

struct OwnerLockTest : testing::Test {
    OwnerLockTest() {
        char base[] = "/tmp/owner lock-XXXXXX";
        root = mkdtemp(base);
        setenv("APPLIANCE_ROOT", root.c_str(), 1);
    }
    ~OwnerLockTest() override { fs::remove_all(root); }

    std::string file() const { return root + "/run/decoder/skelmor.lock"; }
    std::string content() const {
        std::ifstream in(file());
        std::stringstream text;
        text << in.rdbuf();
        return text.str();
    }
    void write(const std::string& text) const {
        fs::create_directories(root + "/run/decoder");
        std::ofstream(file()) << text;
    }

    std::string root;
};

// A process that takes the lock and keeps it until it is killed.
class Owner {
public:
    Owner() {
        int said[2];
        if (pipe(said) != 0)
            return;
        pid_ = fork();
        if (pid_ == 0) {
            const bool taken = takeOwnerLock().result == Result::taken;
            (void)!::write(said[1], taken ? "y" : "n", 1);
            for (;;)
                pause();
        }
        char answer = 'n';
        took_ = read(said[0], &answer, 1) == 1 && answer == 'y';
        close(said[0]);
        close(said[1]);
    }
    ~Owner() { end(); }
    void end() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        pid_ = -1;
    }
    pid_t pid() const { return pid_; }
    bool took() const { return took_; }

private:
    pid_t pid_ = -1;
    bool took_ = false;
};

} // namespace

TEST_F(OwnerLockTest, IsTakenAndNamesItsOwner) {
    const OwnerLock lock = takeOwnerLock();
    EXPECT_EQ(lock.result, Result::taken);
    EXPECT_EQ(lock.file, file());
    EXPECT_EQ(content(), std::to_string(getpid()) + "\n");
    const int other = open(file().c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(flock(other, LOCK_SH | LOCK_NB), -1) << "other programs can test it";
    close(other);
}

TEST_F(OwnerLockTest, ALivingOwnerIsNamed) {
    Owner owner;
    ASSERT_TRUE(owner.took());
    const OwnerLock lock = takeOwnerLock();
    EXPECT_EQ(lock.result, Result::heldByOther);
    EXPECT_EQ(lock.pid, owner.pid());
    EXPECT_EQ(content(), std::to_string(owner.pid()) + "\n") << "its file stays as it is";
}

TEST_F(OwnerLockTest, IsFreeAsSoonAsItsOwnerWasKilled) {
    Owner owner;
    ASSERT_TRUE(owner.took());
    owner.end();
    EXPECT_EQ(takeOwnerLock().result, Result::taken);
    EXPECT_EQ(content(), std::to_string(getpid()) + "\n");
}

TEST_F(OwnerLockTest, AStalePidDoesNotBlockTheLock) {
    write("1234567890\n");
    EXPECT_EQ(takeOwnerLock().result, Result::taken);
    EXPECT_EQ(content(), std::to_string(getpid()) + "\n") << "a longer text before leaves nothing behind";
}

TEST_F(OwnerLockTest, AnOwnerWithoutAPidStillHoldsTheLock) {
    write("no number\n");
    const int other = open(file().c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(other, LOCK_EX | LOCK_NB), 0);
    const OwnerLock lock = takeOwnerLock();
    EXPECT_EQ(lock.result, Result::heldByOther);
    EXPECT_EQ(lock.pid, -1);
    close(other);
}

TEST_F(OwnerLockTest, AProgramThatOnlyTestsTheLockIsWaitedFor) {
    write("1234567890\n");
    int said[2];
    ASSERT_EQ(pipe(said), 0);
    const pid_t tester = fork();
    if (tester == 0) {
        const int other = open(file().c_str(), O_RDONLY | O_CLOEXEC);
        flock(other, LOCK_SH);
        (void)!::write(said[1], "x", 1);
        usleep(100000);
        _exit(0);
    }
    char ready = 0;
    ASSERT_EQ(read(said[0], &ready, 1), 1);
    EXPECT_EQ(takeOwnerLock().result, Result::taken);
    waitpid(tester, nullptr, 0);
}

TEST_F(OwnerLockTest, ProgramsThatItsOwnerStartsDoNotInheritIt) {
    Owner owner;
    ASSERT_TRUE(owner.took());
    bool closed = false;
    for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(owner.pid()) + "/fd")) {
        if (fs::read_symlink(entry) != fs::canonical(file()))
            continue;
        const std::string info =
            "/proc/" + std::to_string(owner.pid()) + "/fdinfo/" + entry.path().filename().string();
        std::ifstream in(info);
        for (std::string key, value; in >> key >> value;)
            if (key == "flags:")
                closed = (std::stoi(value, nullptr, 8) & O_CLOEXEC) != 0;
    }
    EXPECT_TRUE(closed);
}

TEST_F(OwnerLockTest, AFolderThatCannotBeMadeIsReported) {
    std::ofstream(root + "/run") << "a file in the folder's place";
    const OwnerLock lock = takeOwnerLock();
    EXPECT_EQ(lock.result, Result::unavailable);
    EXPECT_EQ(lock.error, ENOTDIR);
}

TEST_F(OwnerLockTest, ALinkInPlaceOfTheFileIsNotFollowed) {
    fs::create_directories(root + "/run/decoder");
    std::ofstream(root + "/precious") << "precious";
    fs::create_symlink(root + "/precious", file());
    EXPECT_EQ(takeOwnerLock().result, Result::unavailable);
    EXPECT_EQ(fs::file_size(root + "/precious"), 8U);
}

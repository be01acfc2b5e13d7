// Objects that already have a barrier file's name: they must not be emptied or waited for.
#include "barrier/barrier_table.h"

#include "tests/fakes/fake_libcommon.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Log = std::vector<fake::LogLine>;

constexpr int player = 700001; // not a pid of a real process: the table does not check
constexpr const char* precious = "somebody's text";

std::string content(const fs::path& file) {
    std::ifstream in(file);
    return {std::istreambuf_iterator<char>(in), {}};
}

Log refused(int error) {
    return {{3, "Failed to create " + barrierFileName(player) + ". (errno=" + std::to_string(error) + " " +
                    std::strerror(error) + ")\n"}};
}

struct BarrierFile : testing::Test {
    BarrierFile() {
        fake::reset();
        std::string name = (fs::temp_directory_path() / "barrier.XXXXXX").string();
        root = mkdtemp(name.data());
        setenv("APPLIANCE_ROOT", root.c_str(), 1);
        fs::create_directories(root / "var/tmp");
    }
    ~BarrierFile() override { fs::remove_all(root); }

    fs::path root;
};

} // namespace

TEST_F(BarrierFile, ALinkUnderTheNameIsNotFollowed) {
    std::ofstream(root / "precious") << precious;
    fs::create_symlink(root / "precious", barrierFileName(player));
    EXPECT_EQ(createBarrier(player), -1);
    EXPECT_EQ(fake::log, refused(ELOOP));
    EXPECT_EQ(content(root / "precious"), precious);
    EXPECT_EQ(dropBarrier(player), -1); // it is not in the table
}

TEST_F(BarrierFile, ALinkToNowhereMakesNoFile) {
    fs::create_symlink(root / "new", barrierFileName(player));
    EXPECT_EQ(createBarrier(player), -1);
    EXPECT_EQ(fake::log, refused(ELOOP));
    EXPECT_FALSE(fs::exists(root / "new"));
}

TEST_F(BarrierFile, AFileWithASecondNameIsNotEmptied) {
    std::ofstream(root / "precious") << precious;
    fs::create_hard_link(root / "precious", barrierFileName(player));
    EXPECT_EQ(createBarrier(player), -1);
    EXPECT_EQ(fake::log, refused(EEXIST));
    EXPECT_EQ(content(root / "precious"), precious);
}

TEST_F(BarrierFile, AFifoUnderTheNameDoesNotMakeItWait) {
    ASSERT_EQ(mkfifo(barrierFileName(player).c_str(), 0600), 0);
    alarm(20); // ends the test's process if it does
    EXPECT_EQ(createBarrier(player), -1);
    EXPECT_EQ(fake::log, refused(ENXIO));
    const int reader = open(barrierFileName(player).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    fake::log.clear();
    EXPECT_EQ(createBarrier(player), -1);
    EXPECT_EQ(fake::log, refused(EEXIST)) << "with a reader the FIFO opens";
    close(reader);
    alarm(0);
}

TEST_F(BarrierFile, AFolderUnderTheNameIsRefused) {
    fs::create_directory(barrierFileName(player));
    EXPECT_EQ(createBarrier(player), -1);
    EXPECT_EQ(fake::log, refused(EISDIR));
}

TEST_F(BarrierFile, AnotherUsersFileIsNotEmptied) {
    std::ofstream(barrierFileName(player)) << precious;
    if (chown(barrierFileName(player).c_str(), 12345, 12345) != 0)
        GTEST_SKIP() << "only root can give a file away";
    EXPECT_EQ(createBarrier(player), -1);
    EXPECT_EQ(fake::log, refused(EEXIST));
    EXPECT_EQ(content(barrierFileName(player)), precious);
}

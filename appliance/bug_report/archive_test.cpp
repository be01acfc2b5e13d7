#include "appliance/bug_report/archive.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using bug_report::writeArchive;

class ArchiveTest : public testing::Test {
protected:
    ArchiveTest() {
        char folder[] = "/tmp/bug-report-XXXXXX";
        folder_ = mkdtemp(folder);
        file_ = folder_ + "/a.tar.gz";
    }
    ~ArchiveTest() override { std::filesystem::remove_all(folder_); }
    std::string folder_;
    std::string file_;
};

std::string textOf(const std::string& file) {
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), {}};
}

// Read by the tar that everybody has.
TEST_F(ArchiveTest, HasThePartsInAFolder) {
    const std::size_t bytes = writeArchive(file_, "report", {{"one.txt", "1\n"}, {"two.txt", ""}});
    EXPECT_EQ(bytes, std::filesystem::file_size(file_));
    ASSERT_EQ(std::system(("tar -xzf " + file_ + " -C " + folder_).c_str()), 0);
    EXPECT_EQ(textOf(folder_ + "/report/one.txt"), "1\n");
    EXPECT_TRUE(std::filesystem::exists(folder_ + "/report/two.txt"));
}

TEST_F(ArchiveTest, IsForItsOwnerOnly) {
    writeArchive(file_, "report", {{"one.txt", "1\n"}});
    struct stat info {};
    ASSERT_EQ(stat(file_.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777U, 0600U);
}

TEST_F(ArchiveTest, NeverReplacesAFile) {
    std::ofstream(file_) << "kept";
    EXPECT_THROW(writeArchive(file_, "report", {{"one.txt", "1\n"}}), std::runtime_error);
    EXPECT_EQ(textOf(file_), "kept");
}

TEST_F(ArchiveTest, AFolderThatIsNotThereIsAnErrorWithItsReason) {
    try {
        writeArchive(folder_ + "/none/a.tar.gz", "report", {});
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(std::string(error.what()),
                  folder_ + "/none/a.tar.gz can't be made: No such file or directory");
    }
}

// /dev/full refuses what is written to it, as a full disk does.
TEST_F(ArchiveTest, AFullDiskIsAnError) {
    FILE* kept = fdopen(dup(STDOUT_FILENO), "w");
    ASSERT_NE(std::freopen("/dev/full", "w", stdout), nullptr);
    EXPECT_THROW(writeArchive("-", "report", {{"one.txt", std::string(100'000, 'x')}}), std::runtime_error);
    std::fflush(stdout);
    dup2(fileno(kept), STDOUT_FILENO);
    std::fclose(kept);
}

} // namespace

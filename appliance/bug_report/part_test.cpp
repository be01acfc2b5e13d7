#include "appliance/bug_report/part.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <stdexcept>

namespace {

using bug_report::endOfFile;
using bug_report::partOf;

class EndOfFileTest : public testing::Test {
protected:
    EndOfFileTest() {
        char folder[] = "/tmp/bug-report-XXXXXX";
        folder_ = mkdtemp(folder);
    }
    ~EndOfFileTest() override { std::filesystem::remove_all(folder_); }
    std::string fileWith(const std::string& text) const {
        std::ofstream(folder_ + "/file") << text;
        return folder_ + "/file";
    }
    std::string folder_;
};

TEST_F(EndOfFileTest, AShortFileIsWhole) {
    EXPECT_EQ(endOfFile(fileWith("one\ntwo\n"), 100), "one\ntwo\n");
    EXPECT_EQ(endOfFile(fileWith(""), 100), "");
}

TEST_F(EndOfFileTest, ALongFileBeginsWithAWholeLine) {
    EXPECT_EQ(endOfFile(fileWith("first\nsecond\nthird\n"), 10), "third\n");
}

TEST_F(EndOfFileTest, FilesOfProcHaveNoSize) {
    EXPECT_NE(endOfFile("/proc/self/status", 100'000).find("Name:"), std::string::npos);
    EXPECT_EQ(endOfFile("/proc/self/status", 5).size(), 5U);
}

TEST_F(EndOfFileTest, AMissingFileIsAnErrorWithItsReason) {
    try {
        endOfFile(folder_ + "/none", 10);
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(std::string(error.what()), folder_ + "/none: No such file or directory");
    }
}

TEST(Part, SaysWhyItIsNotThere) {
    const auto part =
        partOf("status.txt", []() -> std::string { throw std::runtime_error("no decoder runs"); });
    EXPECT_EQ(part.name, "status.txt");
    EXPECT_EQ(part.text, "Not available: no decoder runs\n");
}

} // namespace

#include "appliance/bug_report/processes.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using bug_report::processTable;
using bug_report::statusValue;
using testing::HasSubstr;
using testing::Not;

class ProcessTableTest : public testing::Test {
protected:
    ProcessTableTest() {
        char folder[] = "/tmp/bug-report-XXXXXX";
        proc_ = mkdtemp(folder);
    }
    ~ProcessTableTest() override { std::filesystem::remove_all(proc_); }
    void add(const std::string& pid, const std::string& name) const {
        std::filesystem::create_directories(proc_ + '/' + pid);
        std::ofstream(proc_ + '/' + pid + "/status")
            << "Name:\t" << name << "\nState:\tS (sleeping)\nPPid:\t1\nThreads:\t3\nVmRSS:\t  4711 kB\n";
        std::ofstream(proc_ + '/' + pid + "/wchan") << "do_msgrcv";
        std::ofstream(proc_ + '/' + pid + "/cmdline") << name << " -p secret";
    }
    std::string proc_;
};

TEST_F(ProcessTableTest, HasTheApplianceAndNothingElse) {
    add("10", "skelmor");
    add("11", "multicastplayer");
    add("12", "bash");
    std::filesystem::create_directories(proc_ + "/self");
    const std::string table = processTable(proc_);
    EXPECT_THAT(
        table, HasSubstr("10      1       skelmor          S (sleeping)    3       4711 kB     do_msgrcv\n"));
    EXPECT_THAT(table, HasSubstr("multicastplayer"));
    EXPECT_THAT(table, Not(HasSubstr("bash")));
    EXPECT_THAT(table, Not(HasSubstr("secret"))) << "a command line has a player's password";
}

TEST_F(ProcessTableTest, AProcessThatEndsMeanwhileIsLeftOut) {
    std::filesystem::create_directories(proc_ + "/13");
    EXPECT_THAT(processTable(proc_), Not(HasSubstr("13")));
}

TEST(StatusValue, IsTheWholeKeysValue) {
    EXPECT_EQ(statusValue("PPid:\t7\nPid:\t8\n", "Pid"), "8");
    EXPECT_EQ(statusValue("PPid:\t7\n", "Pid"), "");
}

} // namespace

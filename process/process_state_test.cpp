#include "process/process_state.h"

#include "tests/fakes/fake_libcommon.h"

#include <gtest/gtest.h>

namespace {

struct ProcessStateTest : testing::Test {
    ProcessStateTest() { fake::reset(); }
    ~ProcessStateTest() override {
        process.verbosity = 0;
        process.mode = MODE_AUTO;
    }
};

} // namespace

TEST_F(ProcessStateTest, StartsSilentInAutoModeWithoutPlayers) {
    EXPECT_EQ(process.supervisorPid, 0);
    EXPECT_EQ(process.verbosity, 0);
    EXPECT_EQ(getMode(), MODE_AUTO);
    EXPECT_EQ(process.currentPID, -1);
    EXPECT_EQ(process.pendingPID, -1);
}

TEST_F(ProcessStateTest, AModeChangeIsLoggedInColourWhenVerbose) {
    process.verbosity = 1;
    setMode(MODE_MANUAL);
    EXPECT_EQ(getMode(), MODE_MANUAL);
    EXPECT_EQ(fake::log, (std::vector<fake::LogLine>{{7, "\033[1;35mMode transition: 0 -> 1\033[0m"}}));
}

TEST_F(ProcessStateTest, AModeChangeIsSilentWithoutVerbosity) {
    setMode(MODE_MANUAL);
    EXPECT_EQ(getMode(), MODE_MANUAL);
    EXPECT_TRUE(fake::log.empty());
}

TEST_F(ProcessStateTest, SettingTheSameModePrintsNothingEvenWhenVerbose) {
    process.verbosity = 3;
    setMode(MODE_AUTO);
    EXPECT_EQ(getMode(), MODE_AUTO);
    EXPECT_TRUE(fake::log.empty());
}

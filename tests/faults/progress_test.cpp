#include "tests/faults/progress.h"

#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <stdexcept>
#include <vector>

namespace {

using faults::Options;
using faults::Progress;

std::optional<Options> parsed(std::vector<std::string> words, int& status) {
    words.insert(words.begin(), "program");
    std::vector<char*> pointers;
    for (std::string& word : words)
        pointers.push_back(word.data());
    return faults::readOptions(static_cast<int>(pointers.size()), pointers.data(), "text", status);
}

class FaultProgress : public testing::Test {
protected:
    void SetUp() override { std::remove(options.stateFile.c_str()); }
    void TearDown() override { std::remove(options.stateFile.c_str()); }

    Options options{.seed = 1, .seconds = {}, .count = {}, .stateFile = testing::TempDir() + "progress"};
};

TEST_F(FaultProgress, GoesOnWhereItWasInterrupted) {
    {
        Progress first(options, 5);
        first.add("kills", 2);
        first.max("wait-max", 3.5);
        first.broken("a picture");
        first.done();
        first.add("kills", 9); // of an item that did not end
    }
    Progress second(options, 5);
    EXPECT_EQ(second.next(), 1);
    EXPECT_EQ(second.figure("kills"), 2);
    second.max("wait-max", 1);
    EXPECT_EQ(second.figure("wait-max"), 3.5);
    EXPECT_EQ(second.end(), 0) << "what broke in an earlier run was told there";
    second.done();
    EXPECT_EQ(Progress(options, 5).next(), 2);
}

TEST_F(FaultProgress, EndsAfterItsLastItem) {
    Progress progress(options, 2);
    progress.done();
    EXPECT_TRUE(progress.more());
    progress.done();
    EXPECT_FALSE(progress.more());
    options.count = 1;
    options.stateFile = "";
    Progress counted(options, 0);
    counted.done();
    EXPECT_FALSE(counted.more());
    options.count.reset();
    options.seconds = 0;
    EXPECT_FALSE(Progress(options, 0).more());
}

TEST_F(FaultProgress, ThatBrokeFails) {
    Progress progress(options, 0);
    EXPECT_EQ(progress.end(), 0);
    progress.broken("a picture");
    EXPECT_EQ(progress.end(), 1);
}

TEST_F(FaultProgress, RefusesAStateThatIsNoState) {
    std::ofstream(options.stateFile) << "next 3\nnonsense\n";
    EXPECT_THROW(Progress(options, 0), std::runtime_error);
}

TEST(FaultOptions, AreRead) {
    int status = -1;
    const auto all = parsed({"--seed", "7", "--seconds", "60", "--count", "3", "--state", "file"}, status);
    ASSERT_TRUE(all);
    EXPECT_EQ(all->seed, 7U);
    EXPECT_EQ(all->seconds, 60);
    EXPECT_EQ(all->count, 3);
    EXPECT_EQ(all->stateFile, "file");
    EXPECT_TRUE(parsed({}, status));
}

TEST(FaultOptions, ThatAreWrongAreRefused) {
    for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
             {"--seed"}, {"--seed", "x"}, {"--seed", "-1"}, {"--seconds", "5s"}, {"--what", "3"}, {"3"}}) {
        int status = -1;
        EXPECT_FALSE(parsed(words, status));
        EXPECT_EQ(status, 2);
    }
    int status = -1;
    EXPECT_FALSE(parsed({"--help"}, status));
    EXPECT_EQ(status, 0);
}

} // namespace

#include "player/player_exit.h"

#include "tests/fakes/fake_libcommon.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>

namespace {

using fake::LogLine;
using testing::ElementsAre;
using testing::IsEmpty;

Event childEnded(int waitStatus) {
    Event event{};
    event.id = EID_CHILD;
    event.value1 = 4711;
    event.value2 = waitStatus;
    return event;
}

// The appliance's commands are scripts at the beginning of PATH; they record their calls.
class PlayerExit : public testing::Test {
protected:
    PlayerExit() {
        fake::reset();
        char name[] = "/tmp/player_exit_test.XXXXXX";
        folder_ = mkdtemp(name);
        path_ = std::getenv("PATH");
        setenv("PATH", (folder_.string() + ":" + path_).c_str(), 1);
        for (const char* command : {"resetrua", "blankscreen"})
            installCommand(command);
    }
    ~PlayerExit() override {
        setenv("PATH", path_.c_str(), 1);
        std::filesystem::remove_all(folder_);
    }

    void installCommand(const std::string& command) const {
        std::ofstream(folder_ / command)
            << "#!/bin/sh\necho \"" << command << " $*\" >> " << folder_.string() << "/ran\nexit 1\n";
        std::filesystem::permissions(folder_ / command, std::filesystem::perms::owner_all);
    }

    std::string commandsRun() const {
        std::ostringstream text;
        text << std::ifstream(folder_ / "ran").rdbuf();
        return text.str();
    }

    std::filesystem::path folder_;
    std::string path_;
};

TEST_F(PlayerExit, OtherEventsAreRefused) {
    Event event = childEnded(0);
    event.id = EID_TIMEOUT;
    handleError(2, &event);
    EXPECT_THAT(fake::log, ElementsAre(LogLine{3, "handleError called with illegal event type"}));
    EXPECT_THAT(fake::calls, IsEmpty());
}

TEST_F(PlayerExit, MissingSourceIsRefused) {
    const Event event = childEnded(11 << 8);
    handleError(-1, &event);
    EXPECT_THAT(fake::log, ElementsAre(LogLine{3, "handleError called with -1 sourceID"}));
    EXPECT_THAT(fake::calls, IsEmpty());
}

TEST_F(PlayerExit, CodeZeroClearsAnEarlierError) {
    fake::statusValues[{2, "ErrorCode"}] = "29";
    const Event event = childEnded(0);
    handleError(2, &event);
    EXPECT_EQ(status(2, "ErrorCode"), "0");
    EXPECT_THAT(fake::log, ElementsAre(LogLine{7, "Player existed with code: 0"}));
    EXPECT_EQ(commandsRun(), "");
}

struct CodeCase {
    int code;
    const char* line; // at level 6; null: none
};

TEST_F(PlayerExit, EveryExitCodeIsStoredAndExplained) {
    const CodeCase cases[] = {
        {10, "resetting and forcing genlock due to RUA DMA LOCK"},
        {11, "Player failed to connect."},
        {14, "Player exited due to end of stream."},
        {23, "Player exited due to end of stream."},
        {40, nullptr},
        {50, nullptr},
        {1, "Player exited during playing. errorcode: 1"},
        {13, "Player exited during playing. errorcode: 13"},
        {12, "Player exited during playing. errorcode: 12"},
        {255, "Player exited during playing. errorcode: 255"},
    };
    for (const CodeCase& one : cases) {
        fake::reset();
        const Event event = childEnded(one.code << 8);
        handleError(2, &event);
        EXPECT_EQ(status(2, "ErrorCode"), std::to_string(one.code));
        std::vector<LogLine> expected{{7, "Player existed with code: " + std::to_string(one.code)}};
        if (one.line != nullptr)
            expected.push_back({6, one.line});
        EXPECT_EQ(fake::log, expected) << one.code;
    }
    EXPECT_EQ(commandsRun(), "resetrua ntsc\n");
}

TEST_F(PlayerExit, DmaLockResetsTheOutputForExactlyPalAndElseForNtsc) {
    const Event event = childEnded(10 << 8);
    for (const char* mode : {"pal", "ntsc", "", "PAL"}) {
        fake::setParam(0, "Decoder.VideoMode", mode);
        handleError(2, &event);
    }
    EXPECT_EQ(commandsRun(), "resetrua pal\nresetrua ntsc\nresetrua ntsc\nresetrua ntsc\n");
}

TEST_F(PlayerExit, KilledPlayerHasErrorTwentyNine) {
    for (const int waitStatus : {SIGKILL, SIGSEGV | 0x80}) {
        fake::reset();
        const Event event = childEnded(waitStatus);
        handleError(2, &event);
        EXPECT_EQ(status(2, "ErrorCode"), "29");
        EXPECT_THAT(fake::log, ElementsAre(LogLine{3, "Player crashed due to an uncaught signal. signo=" +
                                                          std::to_string(waitStatus & 0x7f)}));
    }
}

TEST_F(PlayerExit, StoppedPlayerHasErrorThirtyWithTheWholeStatus) {
    const Event event = childEnded((SIGSTOP << 8) | 0x7f);
    handleError(2, &event);
    EXPECT_EQ(status(2, "ErrorCode"), "30");
    EXPECT_THAT(fake::log, ElementsAre(LogLine{3, "Player crashed by an unknown reason. status=4991"}));
}

TEST_F(PlayerExit, BlankScreenIsZeroWhateverTheCommandDid) {
    EXPECT_EQ(blankscreen(), 0);
    EXPECT_EQ(commandsRun(), "blankscreen \n");
    std::filesystem::remove(folder_ / "blankscreen");
    setenv("PATH", folder_.c_str(), 1);
    EXPECT_EQ(blankscreen(), 0);
}

} // namespace

// The screen's programs as users run them.
#include "appliance/screen/frame_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/wait.h>

namespace screen {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

struct Ended {
    int status;
    std::string output; // standard output and error
};

class ScreenPrograms : public testing::Test {
protected:
    ScreenPrograms() {
        char folder[] = "/tmp/screen-programs-XXXXXX";
        root = mkdtemp(folder);
    }
    ~ScreenPrograms() override { fs::remove_all(root); }

    // Runs a program of this build with a temporary appliance root and without a desktop.
    Ended run(const std::string& command, const std::string& desktop = "") const {
        const std::string line = "env -u DISPLAY -u WAYLAND_DISPLAY " + desktop +
                                 " APPLIANCE_ROOT=" + root.string() +
                                 " LIBCOMMON_LOG=stderr timeout 20 " PROGRAM_FOLDER "/" + command + " 2>&1";
        std::FILE* pipe = popen(line.c_str(), "r");
        Ended ended{-1, {}};
        std::array<char, 4096> piece{};
        while (const std::size_t got = std::fread(piece.data(), 1, piece.size(), pipe))
            ended.output.append(piece.data(), got);
        const int status = pclose(pipe);
        ended.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return ended;
    }
    std::string framesPath() const { return root / "run/decoder/screen/frames"; }

    fs::path root;
};

TEST_F(ScreenPrograms, BlankscreenHidesWhatWasDrawn) {
    FrameStore store(framesPath());
    const FrameInfo info = store.draw(televisionShape(VideoMode::pal)).commit(0);
    EXPECT_EQ(run("blankscreen").status, 0);
    EXPECT_GT(store.blankedAt(), info.time);
    EXPECT_GT(store.draw(televisionShape(VideoMode::pal)).commit(0).time, store.blankedAt());
}

TEST_F(ScreenPrograms, BlankscreenWithoutAStoreCreatesOneInTheConfiguredMode) {
    fs::create_directories(root / "etc/decoder");
    std::ofstream(root / "etc/decoder/decoder.conf") << "[Decoder]\nVideoMode = pal\n";
    EXPECT_EQ(run("blankscreen").status, 0);
    FrameStore store(framesPath());
    EXPECT_TRUE(store.present());
    EXPECT_EQ(store.mode(), VideoMode::pal);
    fs::remove(framesPath());
    fs::remove_all(root / "etc");
    EXPECT_EQ(run("blankscreen").status, 0);
    EXPECT_EQ(store.mode(), VideoMode::ntsc) << "what is not pal is ntsc, as for the players";
}

TEST_F(ScreenPrograms, BlankscreenFailsWhereNothingCanBeWritten) {
    std::ofstream(root / "run") << "in the way";
    const Ended ended = run("blankscreen");
    EXPECT_EQ(ended.status, 1);
    EXPECT_THAT(ended.output, HasSubstr("can't be written"));
}

TEST_F(ScreenPrograms, ResetruaSetsTheModeBlackAndContinuesTheNumbers) {
    FrameStore store(framesPath());
    const FrameInfo info = store.draw(televisionShape(VideoMode::pal)).commit(0);
    EXPECT_EQ(run("resetrua ntsc").status, 0);
    EXPECT_EQ(store.mode(), VideoMode::ntsc);
    EXPECT_GT(store.blankedAt(), info.time);
    EXPECT_EQ(store.draw(televisionShape(VideoMode::pal)).commit(0).number, 2U);
    EXPECT_EQ(run("resetrua PAL").status, 0);
    EXPECT_EQ(store.mode(), VideoMode::pal);
}

TEST_F(ScreenPrograms, ResetruaRefusesOtherModes) {
    for (const char* arguments : {"resetrua", "resetrua secam", "resetrua pal ntsc", "resetrua --pal"}) {
        const Ended ended = run(arguments);
        EXPECT_EQ(ended.status, 2) << arguments;
        EXPECT_FALSE(ended.output.empty());
    }
    EXPECT_FALSE(fs::exists(framesPath()));
}

TEST_F(ScreenPrograms, MonitorReportsAMissingDisplay) {
    // Neither a desktop nor a console's display.
    const Ended none = run("decoder-monitor", "SDL_VIDEODRIVER=nosuchdriver");
    EXPECT_EQ(none.status, 1);
    EXPECT_THAT(none.output, HasSubstr("decoder-monitor: the display (nosuchdriver) can't be opened"));
    const Ended wrong = run("decoder-monitor", "DISPLAY=127.0.0.1:9999");
    EXPECT_EQ(wrong.status, 1);
    EXPECT_THAT(wrong.output, HasSubstr("decoder-monitor: the display (x11) can't be opened"));
}

TEST_F(ScreenPrograms, MonitorRefusesWrongOptions) {
    for (const char* options : {"--size 3", "--size 100x100", "--size 1280x720p", "--back-end paper",
                                "--fullscreen --window", "--seconds 0"}) {
        const Ended ended = run(std::string("decoder-monitor ") + options);
        EXPECT_EQ(ended.status, 2) << options;
        EXPECT_FALSE(ended.output.empty());
    }
}

TEST_F(ScreenPrograms, AllPrintTheirHelpAndVersion) {
    for (const std::string name : {"blankscreen", "resetrua", "decoder-monitor"}) {
        EXPECT_EQ(run(name + " --help").status, 0);
        EXPECT_THAT(run(name + " --help").output, HasSubstr("--version"));
        EXPECT_THAT(run(name + " --version").output, testing::StartsWith(name + " "));
        EXPECT_EQ(run(name + " --nonsense").status, 2);
    }
}

} // namespace
} // namespace screen

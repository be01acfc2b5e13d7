// Volume, mute and the other settings of the sound.
#include "appliance/sound/sound_control.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace sound {
namespace {

namespace fs = std::filesystem;

// The appliance's root is read once in a process.
class SoundControl : public testing::Test {
protected:
    SoundControl() {
        static const std::string root = [] {
            char folder[] = "/tmp/sound-XXXXXX";
            const std::string made = mkdtemp(folder);
            setenv("APPLIANCE_ROOT", folder, 1);
            setenv("LIBCOMMON_LOG", "stderr", 0);
            return made;
        }();
        root_ = root;
        fs::create_directories(root_ / "etc/decoder");
        fs::create_directories(root_ / "run/decoder");
    }
    ~SoundControl() override { fs::remove_all(root_); }

    void configure(const std::string& text) const {
        std::ofstream(root_ / "etc/decoder/decoder.conf") << text;
    }

    fs::path root_;
};

TEST_F(SoundControl, PlaysAtFullVolumeWithoutAConfiguration) {
    EXPECT_EQ(settings(), (Settings{.enabled = true, .device = "", .volume = 100, .muted = false}));
    EXPECT_DOUBLE_EQ(gainOf(settings()), 1);
}

TEST_F(SoundControl, ReadsTheConfiguration) {
    configure("[Sound]\nEnabled = no\nDevice = hw:1\nVolume = 40\n");
    EXPECT_EQ(settings(), (Settings{.enabled = false, .device = "hw:1", .volume = 40, .muted = false}));
    EXPECT_DOUBLE_EQ(gainOf(settings()), 0);
    configure("[Sound]\nVolume = 4000\n");
    EXPECT_EQ(settings().volume, 100);
    configure("[Sound]\nVolume = -1\n");
    EXPECT_EQ(settings().volume, 0);
}

TEST_F(SoundControl, MuteKeepsTheVolume) {
    ASSERT_TRUE(setVolume(50));
    const double gain = gainOf(settings());
    EXPECT_GT(gain, 0);
    EXPECT_LT(gain, 0.5);
    ASSERT_TRUE(setMuted(true));
    EXPECT_TRUE(settings().muted);
    EXPECT_DOUBLE_EQ(gainOf(settings()), 0);
    EXPECT_FALSE(toggleMuted());
    EXPECT_DOUBLE_EQ(gainOf(settings()), gain);
    EXPECT_TRUE(toggleMuted());
}

TEST_F(SoundControl, VolumeStaysInItsRange) {
    ASSERT_TRUE(setVolume(-5));
    EXPECT_EQ(settings().volume, 0);
    ASSERT_TRUE(setVolume(105));
    EXPECT_EQ(settings().volume, 100);
}

} // namespace
} // namespace sound

// When a picture counts as still, and what is told about it.
#include "appliance/players/showing/stillness.h"

#include <libcommon/status.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

namespace player {
namespace {

namespace fs = std::filesystem;

constexpr std::int64_t second = 1'000'000;

TEST(Stillness, IsToldAfterItsTimeInWholeSeconds) {
    const StillnessSettings settings{.after = 10};
    EXPECT_EQ(secondsStill(settings, 0, 100 * second), 0) << "no picture yet";
    EXPECT_EQ(secondsStill(settings, 50 * second, 50 * second), 0);
    EXPECT_EQ(secondsStill(settings, 50 * second, 60 * second - 1), 0);
    EXPECT_EQ(secondsStill(settings, 50 * second, 60 * second), 10);
    EXPECT_EQ(secondsStill(settings, 50 * second, 90 * second + second / 2), 40);
}

TEST(Stillness, ZeroTurnsItOff) {
    EXPECT_EQ(secondsStill({.after = 0}, 50 * second, 5000 * second), 0);
}

// The appliance's root is read once in a process.
class StillnessOfASource : public testing::Test {
protected:
    StillnessOfASource() {
        static const std::string root = [] {
            char folder[] = "/tmp/stillness-XXXXXX";
            const std::string made = mkdtemp(folder);
            setenv("APPLIANCE_ROOT", folder, 1);
            setenv("LIBCOMMON_LOG", "stderr", 0);
            return made;
        }();
        root_ = root;
    }
    ~StillnessOfASource() override { fs::remove_all(root_); }

    void configure(const std::string& text) const {
        fs::create_directories(root_ / "etc/decoder");
        std::ofstream(root_ / "etc/decoder/decoder.conf") << text;
    }

    fs::path root_;
};

TEST_F(StillnessOfASource, SettingsHaveDefaultsAndLimits) {
    EXPECT_EQ(stillnessSettings().after, 10);
    EXPECT_FALSE(stillnessSettings().endsPlayer);
    configure("[Player]\nStillAfter = 0\nEndWhenStill = yes\n");
    EXPECT_EQ(stillnessSettings().after, 0);
    EXPECT_TRUE(stillnessSettings().endsPlayer);
    configure("[Player]\nStillAfter = -4\nEndWhenStill = Yes\n");
    EXPECT_EQ(stillnessSettings().after, 0);
    EXPECT_FALSE(stillnessSettings().endsPlayer);
    configure("[Player]\nStillAfter = 99999999999\n");
    EXPECT_EQ(stillnessSettings().after, 86'400);
}

TEST_F(StillnessOfASource, IsWrittenAndCleared) {
    fs::create_directories(root_ / "run/decoder/source");
    auto& report = *new StillnessReport(4);
    report.clear(10'000);
    EXPECT_EQ(status(4, "Still"), "");
    report.tell(12);
    for (int i = 0; i < 1000 && status(4, "Still") != "12"; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(status(4, "Still"), "12");
    report.clear(10'000);
    EXPECT_EQ(status(4, "Still"), "");
}

} // namespace
} // namespace player

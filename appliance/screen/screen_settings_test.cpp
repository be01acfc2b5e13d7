#include "appliance/screen/screen_settings.h"

#include "appliance/screen/appliance_root_fixture.h"
#include "appliance/screen/running_monitor.h"

#include <unistd.h>

namespace screen {
namespace {

constexpr std::int64_t second = 1'000'000;

class Settings : public ApplianceRoot {
protected:
    ScreenSettings read() { return SettingsReader().at(0, ApplianceView{}); }
};

TEST_F(Settings, MissingAndEmptyParametersAreTheDefaults) {
    for (const char* text : {"", "[Screen]\nSize =\nFit =\nShowName =\nShowClock =\n",
                             "[Screen]\nSize = auto\nFit = bars\nShowName = no\nShowClock = no\n"}) {
        configure(text);
        const ScreenSettings settings = read();
        EXPECT_EQ(settings.size, std::nullopt);
        EXPECT_EQ(settings.fit, Fit::bars);
        EXPECT_EQ(settings.nameSeconds, 0);
        EXPECT_FALSE(settings.nameAlways);
        EXPECT_FALSE(settings.clock);
    }
    EXPECT_EQ(log(), "");
}

TEST_F(Settings, AreRead) {
    configure("[Screen]\nSize = 1280x720\nFit = crop\nShowName = 30\nShowClock = yes\n");
    const ScreenSettings settings = read();
    EXPECT_EQ(settings.size, (Size{1280, 720}));
    EXPECT_EQ(settings.fit, Fit::crop);
    EXPECT_EQ(settings.nameSeconds, 30);
    EXPECT_TRUE(settings.clock);
    configure("[Screen]\nShowName = always\nFit = fill\n");
    EXPECT_TRUE(read().nameAlways);
    EXPECT_EQ(read().fit, Fit::fill);
}

TEST_F(Settings, AreReadAFewTimesASecond) {
    configure("[Screen]\nFit = crop\n");
    SettingsReader reader;
    EXPECT_EQ(reader.at(10 * second, ApplianceView{}).fit, Fit::crop);
    configure("[Screen]\nFit = fill\n");
    EXPECT_EQ(reader.at(10 * second + 100'000, ApplianceView{}).fit, Fit::crop);
    EXPECT_EQ(reader.at(11 * second, ApplianceView{}).fit, Fit::fill);
}

TEST_F(Settings, BadValueIsLoggedAgainWhenItChanges) {
    SettingsReader reader;
    const auto count = [this] {
        const std::string lines = log();
        return std::count(lines.begin(), lines.end(), '\n');
    };
    configure("[Screen]\nFit = stretch\n");
    EXPECT_EQ(reader.at(1 * second, ApplianceView{}).fit, Fit::bars);
    reader.at(2 * second, ApplianceView{});
    EXPECT_EQ(count(), 1);
    configure("[Screen]\nFit = zoomed\n");
    reader.at(3 * second, ApplianceView{});
    EXPECT_EQ(count(), 2);
    configure("[Screen]\nFit = fill\n");
    EXPECT_EQ(reader.at(4 * second, ApplianceView{}).fit, Fit::fill);
    EXPECT_EQ(count(), 2);
}

TEST(ScreenSize, IsTwoEvenNumbersWithinTheLimits) {
    EXPECT_EQ(screenSize("160x120"), (Size{160, 120}));
    EXPECT_EQ(screenSize("3840x2160"), (Size{3840, 2160}));
    for (const char* text :
         {"", "x", "1280", "1280x", "x720", "1280X720", "1280x720 ", "1281x720", "1280x721", "158x120",
          "160x118", "3842x2160", "3840x2162", "-1280x720", "99999999999x720"})
        EXPECT_EQ(screenSize(text), std::nullopt) << text;
}

class RunningMonitor : public ApplianceRoot {
protected:
    // As decoder-monitor would publish it if it were this process.
    void publish(const std::string& size, const std::string& pid, const std::string& start) {
        write("run/decoder/info.conf",
              "[Screen.Info]\nSize = " + size + "\nMonitorPid = " + pid + "\nMonitorStart = " + start + "\n");
    }
    static std::string ownStart() {
        std::ifstream file("/proc/self/stat");
        std::string word;
        std::getline(file, word, ')');
        for (int i = 0; i < 20; ++i)
            file >> word;
        return word;
    }
    const std::string own = std::to_string(getpid());
};

TEST_F(RunningMonitor, TellsItsSize) {
    EXPECT_EQ(runningMonitor(ApplianceView{}), std::nullopt);
    publish("1366x768", own, ownStart());
    EXPECT_EQ(runningMonitor(ApplianceView{}), (Size{1366, 768}));
}

TEST_F(RunningMonitor, OneThatHasEndedOrLostItsDisplayHasNone) {
    publish("1366x768", own, ownStart() + "0");
    EXPECT_EQ(runningMonitor(ApplianceView{}), std::nullopt) << "another process with that number";
    publish("1366x768", "", "");
    EXPECT_EQ(runningMonitor(ApplianceView{}), std::nullopt);
    for (const char* size : {"", "0x0", "-1x5", "1366", "99999x1", "1366x768x"}) {
        publish(size, own, ownStart());
        EXPECT_EQ(runningMonitor(ApplianceView{}), std::nullopt) << size;
    }
    publish("1366x768", "../self", ownStart());
    EXPECT_EQ(runningMonitor(ApplianceView{}), std::nullopt);
}

} // namespace
} // namespace screen

#include "appliance/screen/monitor/connectors.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace screen {
namespace {

class Connectors : public testing::Test {
protected:
    Connectors() {
        char folder[] = "/tmp/connectors-XXXXXX";
        root = mkdtemp(folder);
    }
    ~Connectors() override { std::filesystem::remove_all(root); }

    void connector(const std::string& name, const std::string& status, const std::string& modes) const {
        std::filesystem::create_directories(root / name);
        std::ofstream(root / name / "status") << status << '\n';
        std::ofstream(root / name / "modes") << modes;
    }

    std::filesystem::path root;
};

TEST_F(Connectors, TellThoseWithADisplay) {
    connector("card0-VGA-1", "connected", "1280x720\n640x480\n");
    connector("card0-HDMI-A-1", "connected", "1920x1080\n");
    connector("card0-HDMI-A-2", "disconnected", "");
    std::filesystem::create_directories(root / "card0");
    EXPECT_EQ(connectorsText(root), "card0-HDMI-A-1 1920x1080\ncard0-VGA-1 1280x720\n");
}

TEST_F(Connectors, ChangeWhenADisplayIsRemovedOrReplaced) {
    connector("card0-HDMI-A-1", "connected", "1920x1080\n");
    const std::string before = connectorsText(root);
    connector("card0-HDMI-A-1", "connected", "3840x2160\n");
    EXPECT_NE(connectorsText(root), before);
    connector("card0-HDMI-A-1", "disconnected", "");
    EXPECT_EQ(connectorsText(root), "");
}

TEST_F(Connectors, AreNoneWhereThereAreNoDevices) {
    EXPECT_EQ(connectorsText(root / "missing"), "");
}

TEST_F(Connectors, TellTheSizeOfTheOnlyDisplay) {
    EXPECT_EQ(soleDisplay(root), std::nullopt);
    connector("card0-HDMI-A-1", "connected", "1920x1080\n1280x720\n");
    connector("card0-HDMI-A-2", "disconnected", "");
    EXPECT_EQ(soleDisplay(root), (Size{1920, 1080}));
    connector("card0-HDMI-A-2", "connected", "1280x720\n");
    EXPECT_EQ(soleDisplay(root), std::nullopt) << "two displays";
}

TEST_F(Connectors, DoNotTellOddModes) {
    for (const char* modes : {"", "1920x1080i\n", "1920x\n", "0x0\n", "-1x5\n", "native\n"}) {
        connector("card0-HDMI-A-1", "connected", modes);
        EXPECT_EQ(soleDisplay(root), std::nullopt) << modes;
    }
}

} // namespace
} // namespace screen

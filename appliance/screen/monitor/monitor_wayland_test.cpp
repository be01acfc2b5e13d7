// decoder-monitor on a Wayland desktop: real windows of a compositor that runs on an X server without a display.
#include "appliance/screen/monitor/monitor_fixture.h"
#include "tests/support/wayland_server.h"

#include <gmock/gmock.h>

#include <csignal>

namespace screen {
namespace {

constexpr std::uint32_t blue = 0x203080;

class MonitorOnWayland : public MonitorTest {
protected:
    void SetUp() override {
        if (const std::string reason = x_server::WaylandServer::whyNot(); !reason.empty())
            GTEST_SKIP() << reason;
        MonitorTest::SetUp();
        compositor =
            std::make_unique<x_server::WaylandServer>(*server, wholeDisplay.width, wholeDisplay.height);
    }
    void TearDown() override {
        MonitorTest::TearDown();
        monitor.reset();
        compositor.reset();
    }

    void startHere(const std::vector<std::string>& arguments) {
        std::map<std::string, std::string> variables = environment();
        variables.erase("DISPLAY"); // the X server is the compositor's, not the monitor's
        variables["DISPLAY"] = "";
        variables["WAYLAND_DISPLAY"] = compositor->display();
        variables["XDG_RUNTIME_DIR"] = compositor->runtimeFolder();
        std::vector<std::string> all{MONITOR_PROGRAM};
        all.insert(all.end(), arguments.begin(), arguments.end());
        monitor = std::make_unique<appliance::Process>(all, variables, root / "output");
    }

    std::unique_ptr<x_server::WaylandServer> compositor;
};

TEST_F(MonitorOnWayland, ShowsEachNewFrame) {
    startHere({"--fullscreen"});
    for (std::uint16_t counter = 1; counter <= 10; ++counter) {
        draw(wholeDisplay, 3, counter, blue);
        ASSERT_TRUE(shows(3, counter)) << counter;
    }
    EXPECT_TRUE(informs("Size = 640x360\n"));
}

TEST_F(MonitorOnWayland, ComesBackAfterTheCompositorWasStopped) {
    startHere({"--fullscreen"});
    for (std::uint16_t turn = 1; turn <= 2; ++turn) {
        draw(wholeDisplay, 1, turn, blue);
        ASSERT_TRUE(shows(1, turn)) << turn;
        compositor->stop();
        EXPECT_TRUE(informs("Size = \n")) << turn;
        compositor->start();
    }
    EXPECT_TRUE(shows(1, 2));
    EXPECT_TRUE(monitor->running());
}

TEST_F(MonitorOnWayland, TakesKeys) {
    draw(wholeDisplay, 1, 1, blue);
    startHere({"--fullscreen"});
    ASSERT_TRUE(shows(1, 1));
    // The pointer has to enter the compositor's window before the keyboard belongs to it.
    server->movePointer(100, 100);
    server->key("q");
    EXPECT_EQ(monitor->waitForEnd(appliance::Seconds(10)), 0);
}

} // namespace
} // namespace screen

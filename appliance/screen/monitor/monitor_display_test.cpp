// decoder-monitor on a desktop: real windows on an X server without a display.
#include "appliance/screen/monitor/monitor_fixture.h"

#include <gmock/gmock.h>

#include <csignal>
#include <sys/wait.h>

namespace screen {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::uint32_t blue = 0x203080;

TEST_F(MonitorTest, ShowsThePicturePixelForPixel) {
    Drawing drawing = store->draw(shapeOf(wholeDisplay));
    x_server::Image expected{wholeDisplay.width, wholeDisplay.height, {}};
    for (int y = 0; y < wholeDisplay.height; ++y)
        for (int x = 0; x < wholeDisplay.width; ++x) {
            const auto pixel = static_cast<std::uint32_t>((x * 7919 + y * 104729) & 0xffffff);
            reinterpret_cast<std::uint32_t*>(drawing.plane(0) +
                                             drawing.stride(0) * static_cast<std::size_t>(y))[x] = pixel;
            expected.pixels.push_back(pixel);
        }
    drawing.commit(0);
    start();
    EXPECT_TRUE(appliance::eventually([&] { return server->screen().pixels == expected.pixels; }));
}

TEST_F(MonitorTest, FillsTheDisplayHidesThePointerAndKeepsItAwake) {
    ASSERT_FALSE(server->pointerHidden());
    draw(wholeDisplay, 1, 7, blue);
    start();
    ASSERT_TRUE(shows(1, 7));
    EXPECT_THAT(server->windows(), ElementsAre("Network video decoder 640x360"));
    EXPECT_TRUE(appliance::eventually([&] { return server->pointerHidden(); }));
    EXPECT_FALSE(server->fallsAsleep());
}

TEST_F(MonitorTest, ShowsAWindowOfTheAskedSizeAndTellsIt) {
    start({"--window", "--size", "320x240"});
    EXPECT_TRUE(informs("Size = 320x240\n"));
    EXPECT_THAT(server->windows(), ElementsAre("Network video decoder 320x240"));
    EXPECT_FALSE(server->pointerHidden());
    EXPECT_TRUE(informs("MonitorPid = " + std::to_string(monitor->pid()) + "\n"));
    monitor->signal(SIGTERM);
    EXPECT_EQ(monitor->waitForEnd(), 0);
    EXPECT_THAT(information(), HasSubstr("Size = \n"));
    EXPECT_THAT(information(), HasSubstr("MonitorPid = \n"));
}

TEST_F(MonitorTest, ShowsEachNewFrame) {
    start();
    for (std::uint16_t counter = 1; counter <= 20; ++counter) {
        draw(wholeDisplay, 2, counter, blue);
        ASSERT_TRUE(shows(2, counter)) << counter;
    }
}

TEST_F(MonitorTest, FollowsTheSizeOfTheDisplay) {
    draw(wholeDisplay, 1, 1, blue);
    start();
    ASSERT_TRUE(shows(1, 1));
    ASSERT_TRUE(server->resize(320, 180));
    ASSERT_TRUE(informs("Size = 320x180\n"));
    EXPECT_TRUE(shows(1, 1)) << "the picture is scaled to the smaller display";
    ASSERT_TRUE(server->resize(640, 360));
    ASSERT_TRUE(informs("Size = 640x360\n"));
    EXPECT_TRUE(shows(1, 1));
}

TEST_F(MonitorTest, ComesBackAfterTheDisplayWasLost) {
    start();
    const pid_t pid = monitor->pid();
    for (std::uint16_t turn = 1; turn <= 3; ++turn) {
        draw(wholeDisplay, 1, turn, blue);
        ASSERT_TRUE(shows(1, turn)) << turn;
        server->kill();
        EXPECT_TRUE(informs("Size = \n")) << turn;
        server->start();
    }
    EXPECT_TRUE(shows(1, 3));
    EXPECT_TRUE(informs("Size = 640x360\n"));
    EXPECT_TRUE(monitor->running());
    EXPECT_EQ(monitor->pid(), pid);
    EXPECT_THAT(output(), HasSubstr("The display is lost"));
}

TEST_F(MonitorTest, EndsWhileItWaitsForTheDisplay) {
    draw(wholeDisplay, 1, 1, blue);
    start();
    ASSERT_TRUE(shows(1, 1));
    server->kill();
    EXPECT_TRUE(informs("Size = \n"));
    monitor->signal(SIGTERM);
    EXPECT_EQ(monitor->waitForEnd(), 0);
}

TEST_F(MonitorTest, KeyQLeaves) {
    draw(wholeDisplay, 1, 1, blue);
    start();
    ASSERT_TRUE(shows(1, 1));
    server->key("q");
    EXPECT_EQ(monitor->waitForEnd(), 0);
    EXPECT_TRUE(server->windows().empty());
}

TEST_F(MonitorTest, KeyFChangesBetweenWindowAndFullScreen) {
    draw(wholeDisplay, 1, 1, blue);
    start({"--fullscreen", "--size", "320x180"});
    ASSERT_TRUE(shows(1, 1));
    server->key("f");
    EXPECT_TRUE(appliance::eventually(
        [&] { return server->windows() == std::vector<std::string>{"Network video decoder 320x180"}; }));
    server->key("f");
    EXPECT_TRUE(appliance::eventually(
        [&] { return server->windows() == std::vector<std::string>{"Network video decoder 640x360"}; }));
    EXPECT_TRUE(shows(1, 1));
}

TEST_F(MonitorTest, KeyIShowsTheNameAndAWrongKeyIsExplained) {
    std::filesystem::create_directories(root / "etc/decoder");
    appliance::writeFile(root / "etc/decoder/decoder.conf", "[Encoder.Front door]\nAddress = 127.0.0.1\n");
    draw(wholeDisplay, 0, 1, blue);
    start();
    ASSERT_TRUE(shows(0, 1));
    const x_server::Image without = server->screen();
    server->key("i");
    EXPECT_TRUE(appliance::eventually([&] { return server->screen().pixels != without.pixels; }));
    server->key("i");
    EXPECT_TRUE(appliance::eventually([&] { return server->screen().pixels == without.pixels; }));
    server->key("Right");
    EXPECT_TRUE(appliance::eventually([&] { return server->screen().pixels != without.pixels; }))
        << "no decoder is running: the picture says so";
    EXPECT_THAT(output(), HasSubstr("no decoder is running"));
    EXPECT_TRUE(appliance::eventually([&] { return server->screen().pixels == without.pixels; }))
        << "the message goes away";
}

TEST_F(MonitorTest, DrawsNothingWhenNothingChanges) {
    draw(wholeDisplay, 1, 1, blue);
    start({"--fullscreen", "--seconds", "4"});
    ASSERT_TRUE(shows(1, 1));
    appliance::pause(std::chrono::milliseconds(500));
    // Draws over the monitor's window: what it does not draw again stays.
    server->fill(0, 0, 8, 8, 0xff0000);
    appliance::pause(std::chrono::milliseconds(1000));
    EXPECT_EQ(server->part(0, 0, 1, 1).at(0, 0), 0xff0000U);
    draw(wholeDisplay, 1, 2, blue);
    EXPECT_TRUE(appliance::eventually([&] { return server->part(0, 0, 1, 1).at(0, 0) == blue; }));
    EXPECT_EQ(monitor->waitForEnd(), 0);
}

TEST_F(MonitorTest, ReportsAMissingDisplay) {
    server->kill();
    start();
    const auto status = monitor->waitForEnd();
    ASSERT_TRUE(status.has_value());
    EXPECT_EQ(WEXITSTATUS(*status), 1);
    EXPECT_THAT(output(), HasSubstr("decoder-monitor: the display (x11) can't be opened"));
}

} // namespace
} // namespace screen

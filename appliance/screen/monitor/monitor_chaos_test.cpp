// decoder-monitor while everything around it fails: the display always shows whole pictures, and it never ends.
//
// Each test is short. MONITOR_ROUNDS=100 in the environment makes them as much longer: displays lost, players killed by
// the hundred, changes of the size.
#include "appliance/screen/monitor/monitor_fixture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <random>
#include <set>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace screen {
namespace {

int rounds(int few) {
    const char* text = std::getenv("MONITOR_ROUNDS");
    return text == nullptr ? few : std::max(std::atoi(text), 1);
}

// Every picture has its own colour, which is never grey.
std::uint32_t colourOf(std::uint16_t counter) {
    return 0x800000U | (counter * 2654435761U >> 12 & 0x3f3fU);
}

class MonitorChaos : public MonitorTest {
protected:
    // A player that draws pictures of these sizes in turn, half a picture at a time, until it is killed.
    pid_t startPlayer(std::vector<Size> sizes, std::uint16_t first) const {
        const pid_t test = getpid();
        const pid_t pid = fork();
        if (pid != 0)
            return pid;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != test)
            _exit(1);
        FrameStore mine(root / "run/decoder/screen/frames");
        for (std::uint16_t counter = first; counter < first + 20'000; ++counter) {
            drawSlowly(mine, sizes[counter % sizes.size()], counter);
            usleep(1000);
        }
        _exit(0);
    }

    static void drawSlowly(FrameStore& to, Size size, std::uint16_t counter) {
        Drawing drawing = to.draw(shapeOf(size));
        if (!drawing)
            return;
        for (int y = 0; y < size.height; ++y) {
            if (y == size.height / 2)
                usleep(3000);
            auto* row = reinterpret_cast<std::uint32_t*>(drawing.plane(0) +
                                                         drawing.stride(0) * static_cast<std::size_t>(y));
            std::fill(row, row + size.width, colourOf(counter));
        }
        drawFrameMark(drawing.plane(0), size.width, size.height, static_cast<int>(drawing.stride(0)),
                      {1, counter});
        drawing.commit(1);
    }

    static void kill(pid_t pid) {
        ::kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }

    // The colours on the upper part of the display, which is never reached by the mark; black is none.
    std::set<std::uint32_t> colours() const {
        const x_server::Image image = server->screen();
        const auto upper = static_cast<std::ptrdiff_t>(image.height * 2 / 5) * image.width;
        std::set<std::uint32_t> all(image.pixels.begin(), image.pixels.begin() + upper);
        all.erase(0);
        return all;
    }

    // Looks at the display for a while and counts torn pictures.
    int countTorn(int looks, std::set<std::uint32_t>& seen) const {
        int torn = 0;
        for (int i = 0; i < looks; ++i) {
            const std::set<std::uint32_t> all = colours();
            seen.insert(all.begin(), all.end());
            torn += all.size() > 1 ? 1 : 0;
            appliance::pause(std::chrono::milliseconds(3));
        }
        return torn;
    }
};

TEST_F(MonitorChaos, ShowsWholePicturesWhilePlayersAreKilled) {
    start();
    std::mt19937 random(1);
    std::set<std::uint32_t> seen;
    int torn = 0;
    const int kills = rounds(4) * 10;
    for (int i = 0; i < kills; ++i) {
        const pid_t player = startPlayer({wholeDisplay}, static_cast<std::uint16_t>(i * 50));
        torn += countTorn(std::uniform_int_distribution(1, 8)(random), seen);
        kill(player);
    }
    EXPECT_EQ(torn, 0);
    EXPECT_GT(seen.size(), static_cast<std::size_t>(kills) / 4) << "the display moved";
    draw(wholeDisplay, 1, 60'000, 0x804020);
    EXPECT_TRUE(shows(1, 60'000)) << "the monitor goes on";
    std::cout << kills << " players killed, " << seen.size() << " pictures seen, " << torn << " torn\n";
}

TEST_F(MonitorChaos, ShowsWholePicturesWhileSizesChange) {
    start();
    const std::vector<Size> sizes{wholeDisplay, {320, 180}, {960, 540}};
    std::set<std::uint32_t> seen;
    int torn = 0;
    const int changes = rounds(5);
    for (int i = 0; i < changes; ++i) {
        // Two players at once, as in a switch.
        const pid_t one = startPlayer(sizes, static_cast<std::uint16_t>(i * 100));
        const pid_t other = startPlayer({sizes[1], sizes[0]}, static_cast<std::uint16_t>(i * 100 + 30'000));
        ASSERT_TRUE(i % 2 == 0 ? server->resize(320, 180) : server->resize(640, 360));
        torn += countTorn(40, seen);
        kill(one);
        kill(other);
    }
    ASSERT_TRUE(server->resize(640, 360));
    EXPECT_EQ(torn, 0);
    EXPECT_GT(seen.size(), static_cast<std::size_t>(changes)) << "the display moved";
    ASSERT_TRUE(informs("Size = 640x360\n"));
    draw(wholeDisplay, 1, 60'000, 0x804020);
    EXPECT_TRUE(shows(1, 60'000)) << "the monitor goes on";
    std::cout << changes << " changes of the size, " << seen.size() << " pictures seen, " << torn
              << " torn\n";
}

TEST_F(MonitorChaos, ComesBackEachTimeTheDisplayWasLost) {
    start();
    const int losses = rounds(3);
    std::vector<double> times;
    for (int i = 1; i <= losses; ++i) {
        const auto counter = static_cast<std::uint16_t>(i);
        draw(wholeDisplay, 1, counter, 0x804020);
        ASSERT_TRUE(shows(1, counter)) << "loss " << i;
        server->kill();
        server->start();
        const auto began = std::chrono::steady_clock::now();
        ASSERT_TRUE(shows(1, counter)) << "after loss " << i;
        times.push_back(appliance::Seconds(std::chrono::steady_clock::now() - began).count());
    }
    EXPECT_TRUE(monitor->running());
    std::sort(times.begin(), times.end());
    std::cout << losses << " losses; seconds from the display's start to the picture: median "
              << times[times.size() / 2] << ", worst " << times.back() << '\n';
}

} // namespace
} // namespace screen

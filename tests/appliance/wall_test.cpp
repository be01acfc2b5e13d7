// A wall of four whole decoders: supervisors, players and encoders, on a display.
#include "tests/appliance/appliance.h"
#include "tests/support/x_server.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <libcommon/clock.h>
#include <memory>
#include <string>
#include <vector>

namespace {

using appliance::Appliance;
using appliance::eventually;
using appliance::Process;

constexpr int width = 1440; // two tiles of 720x540 beside each other
constexpr int height = 1080;
constexpr int tiles = 4;
constexpr int measuredSeconds = 10;
constexpr double leastRate =
    10; // frames/s. The encoders send 25; a machine with other work to do may not show all

// A tile of the display. The pictures are 4:3 and fill it.
std::optional<FrameMark> markIn(x_server::XServer& server, int tile) {
    const x_server::Image image =
        server.part(tile % 2 * width / 2, tile / 2 * height / 2, width / 2, height / 2);
    return readFrameMark(reinterpret_cast<const std::uint8_t*>(image.pixels.data()), image.width,
                         image.height, 4 * image.width);
}

bool showsMoving(x_server::XServer& server, int tile, int source) {
    std::optional<FrameMark> first;
    return eventually([&] {
        const auto now = markIn(server, tile);
        if (!now || now->source != source)
            return false;
        if (!first)
            first = now;
        return now->counter != first->counter;
    });
}

// Four decoders with two encoders; decoder N begins with encoder N % 2.
class WallOfDecoders : public testing::Test {
protected:
    void SetUp() override {
        if (const std::string reason = x_server::XServer::whyNot(); !reason.empty())
            GTEST_SKIP() << reason;
        for (int i = 0; i < tiles; ++i)
            decoders.push_back(std::make_unique<Appliance>());
        for (int i = 0; i < 2; ++i) {
            // The mark of an encoder's picture is its number in its own appliance: 0. The second one gets another.
            if (i == 1)
                decoders[1]->addSource("nowhere", {{"Address", "127.0.0.1:1"}, {"AutoEnabled", "no"}});
            decoders[static_cast<std::size_t>(i)]->addEncoder("camera");
        }
        decoders[2]->addSource("camera", {{"Address", decoders[0]->encoder(0).address()}});
        decoders[3]->addSource("camera", {{"Address", decoders[1]->encoder(0).address()}});
        for (const auto& decoder : decoders)
            decoder->start();
        server = std::make_unique<x_server::XServer>(width, height);
        std::vector<std::string> command{Appliance::program("decoder-monitor"), "--fullscreen", "--wall",
                                         "2x2"};
        for (const auto& decoder : decoders)
            command.push_back(decoder->root());
        wall = std::make_unique<Process>(command,
                                         std::map<std::string, std::string>{{"DISPLAY", server->display()},
                                                                            {"WAYLAND_DISPLAY", ""},
                                                                            {"LIBCOMMON_LOG", "stderr"}},
                                         decoders[0]->root() + "/var/log/monitor.log");
    }
    void TearDown() override {
        if (wall) {
            wall->signal(SIGTERM);
            EXPECT_TRUE(wall->waitForEnd());
        }
        wall.reset();
        server.reset();
    }

    static int sourceOf(int tile) { return tile % 2; }

    std::vector<std::unique_ptr<Appliance>> decoders;
    std::unique_ptr<x_server::XServer> server;
    std::unique_ptr<Process> wall;
};

// Counts the frames that reach the store and, by their marks, those that reach the display.
TEST_F(WallOfDecoders, EachPlays) {
    for (int i = 0; i < tiles; ++i)
        ASSERT_TRUE(showsMoving(*server, i, sourceOf(i))) << i;
    std::vector<std::uint64_t> drawn(tiles);
    std::vector<int> shown(tiles);
    std::vector<int> counter(tiles, -1);
    for (int i = 0; i < tiles; ++i)
        drawn[i] = decoders[i]->screen().newestInfo().number;
    const std::int64_t begin = gettimeusec();
    while (gettimeusec() - begin < measuredSeconds * std::int64_t{1'000'000})
        for (int i = 0; i < tiles; ++i) {
            const auto mark = markIn(*server, i);
            if (mark && mark->counter != counter[i]) {
                counter[i] = mark->counter;
                ++shown[i];
            }
        }
    const double seconds = static_cast<double>(gettimeusec() - begin) / 1e6;
    for (int i = 0; i < tiles; ++i) {
        const double rate =
            static_cast<double>(decoders[i]->screen().newestInfo().number - drawn[i]) / seconds;
        std::printf("decoder %d: %.1f frames/s in its store, at least %.1f frames/s seen on the display\n",
                    i + 1, rate, shown[i] / seconds);
        EXPECT_GE(rate, leastRate) << i;
        EXPECT_GE(shown[i], 5) << i;
    }
}

TEST_F(WallOfDecoders, OneThatIsKilledIsMarkedAndTheOthersPlay) {
    for (int i = 0; i < tiles; ++i)
        ASSERT_TRUE(showsMoving(*server, i, sourceOf(i))) << i;
    const auto isMarked = [&](int tile) {
        const int x = tile % 2 * width / 2 + width / 4;
        return server->part(x, tile / 2 * height / 2, 1, 1).at(0, 0) == 0xd03030;
    };
    decoders[2]->supervisor().signal(SIGKILL);
    EXPECT_TRUE(eventually([&] { return isMarked(2); }));
    for (const int i : {0, 1, 3}) {
        EXPECT_TRUE(showsMoving(*server, i, sourceOf(i))) << i;
        EXPECT_FALSE(isMarked(i)) << i;
    }
    decoders[2]->ctl({"sweep"});
    decoders[2]->start();
    EXPECT_TRUE(showsMoving(*server, 2, sourceOf(2))) << "it runs again";
    EXPECT_TRUE(eventually([&] { return !isMarked(2); }));
}

} // namespace

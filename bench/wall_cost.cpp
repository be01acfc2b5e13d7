#include "bench/wall_cost.h"

#include "bench/process_cost.h"
#include "tests/appliance/appliance.h"
#include "tests/support/x_server.h"

#include <libcommon/clock.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <iomanip>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace bench {
namespace {

using appliance::Appliance;
using appliance::Process;
using x_server::XServer;

constexpr int tileWidth = 720; // 4:3, as the pictures are shown
constexpr int tileHeight = 540;
constexpr int encoders = 2;

struct Counts {
    std::uint64_t drawn = 0; // number of the newest frame
    int shown = 0;           // different marks on the display
    int counter = -1;        // of the last mark
};

struct Wall {
    int columns = 1;
    int rows = 1;
    std::vector<std::unique_ptr<Appliance>> decoders;
    std::unique_ptr<XServer> server;
    std::unique_ptr<Process> monitor;
};

// Decoder N shows encoder N % 2. The encoders belong to the first two decoders.
void addSources(Wall& wall, int count) {
    for (int i = 0; i < count; ++i) {
        wall.decoders.push_back(std::make_unique<Appliance>());
        if (i < encoders)
            wall.decoders[i]->addEncoder("camera");
        else
            wall.decoders[i]->addSource("camera",
                                        {{"Address", wall.decoders[i % encoders]->encoder(0).address()}});
    }
}

Wall startWall(int count) {
    Wall wall;
    wall.columns = static_cast<int>(std::ceil(std::sqrt(count)));
    wall.rows = (count + wall.columns - 1) / wall.columns;
    addSources(wall, count);
    wall.server = std::make_unique<XServer>(wall.columns * tileWidth, wall.rows * tileHeight);
    std::vector<std::string> command{Appliance::program("decoder-monitor"), "--fullscreen", "--wall",
                                     std::to_string(wall.columns) + 'x' + std::to_string(wall.rows)};
    for (const auto& decoder : wall.decoders) {
        decoder->start();
        command.push_back(decoder->root());
    }
    wall.monitor = std::make_unique<Process>(
        command,
        std::map<std::string, std::string>{{"DISPLAY", wall.server->display()}, {"WAYLAND_DISPLAY", ""}},
        wall.decoders[0]->root() + "/var/log/monitor.log");
    return wall;
}

// Only the strip of the mark is fetched from the display.
std::optional<FrameMark> markOf(Wall& wall, int tile) {
    constexpr int top = tileHeight * 9 / 10;
    const x_server::Image strip = wall.server->part(
        tile % wall.columns * tileWidth, tile / wall.columns * tileHeight + top, tileWidth, tileHeight - top);
    std::vector<std::uint32_t> picture(static_cast<std::size_t>(tileWidth) * tileHeight);
    std::ranges::copy(strip.pixels, picture.begin() + static_cast<std::ptrdiff_t>(top) * tileWidth);
    return readFrameMark(reinterpret_cast<const std::uint8_t*>(picture.data()), tileWidth, tileHeight,
                         4 * tileWidth);
}

bool awaitPictures(Wall& wall) {
    for (int i = 0; i < static_cast<int>(wall.decoders.size()); ++i)
        if (!appliance::eventually([&] { return markOf(wall, i).has_value(); })) {
            std::cerr << "decoder " << i + 1 << " shows nothing\n";
            return false;
        }
    return true;
}

void watch(Wall& wall, std::vector<Counts>& counts, int seconds) {
    const std::int64_t until = gettimeusec() + seconds * std::int64_t{1'000'000};
    while (gettimeusec() < until) {
        for (std::size_t i = 0; i < counts.size(); ++i) {
            const auto mark = markOf(wall, static_cast<int>(i));
            if (!mark || mark->counter == counts[i].counter)
                continue;
            counts[i].counter = mark->counter;
            ++counts[i].shown;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

struct Group {
    const char* name;
    std::vector<pid_t> pids;
    double before = 0;
};

std::vector<Group> groupsOf(Wall& wall) {
    std::vector<Group> groups{
        {"wall", familyOf(wall.monitor->pid())}, {"players", {}}, {"supervisors", {}}, {"encoders", {}}};
    for (std::size_t i = 0; i < wall.decoders.size(); ++i) {
        for (const int player : wall.decoders[i]->players())
            groups[1].pids.push_back(player);
        groups[2].pids.push_back(wall.decoders[i]->supervisor().pid());
        if (i < encoders)
            groups[3].pids.push_back(wall.decoders[i]->encoder(0).process().pid());
    }
    for (Group& group : groups)
        group.before = cpuSecondsOf(group.pids);
    return groups;
}

void printCosts(const std::vector<Group>& groups, double seconds) {
    for (const Group& group : groups)
        std::cout << "  " << std::left << std::setw(12) << group.name << std::right << std::fixed
                  << std::setprecision(1) << std::setw(6)
                  << 100 * (cpuSecondsOf(group.pids) - group.before) / seconds << " % of a core, "
                  << privateMegabytesOf(group.pids) << " MB private, " << group.pids.size() << " processes\n";
}

// False when one is below the limit.
bool printRates(Wall& wall, const std::vector<Counts>& counts, double seconds, double limit) {
    bool good = true;
    for (std::size_t i = 0; i < counts.size(); ++i) {
        const double drawn =
            static_cast<double>(wall.decoders[i]->screen().newestInfo().number - counts[i].drawn) / seconds;
        const double shown = counts[i].shown / seconds;
        good = good && drawn >= limit && shown >= limit;
        std::cout << "  decoder " << i + 1 << std::fixed << std::setprecision(1) << std::setw(7) << drawn
                  << " frames/s drawn" << std::setw(7) << shown << " seen on the display\n";
    }
    return good;
}

} // namespace

int measureWall(const WallOptions& options) {
    Wall wall = startWall(options.decoders);
    if (!awaitPictures(wall))
        return 1;
    std::this_thread::sleep_for(std::chrono::seconds(2));
    std::vector<Counts> counts(wall.decoders.size());
    for (std::size_t i = 0; i < counts.size(); ++i)
        counts[i].drawn = wall.decoders[i]->screen().newestInfo().number;
    const std::vector<Group> groups = groupsOf(wall);
    const std::int64_t begin = gettimeusec();
    watch(wall, counts, options.seconds);
    const double seconds = static_cast<double>(gettimeusec() - begin) / 1e6;
    std::cout << options.decoders << " decoders of 720x576 on " << std::thread::hardware_concurrency()
              << " processors:\n";
    const bool good = printRates(wall, counts, seconds, options.rate);
    printCosts(groups, seconds);
    wall.monitor->signal(SIGTERM);
    wall.monitor->waitForEnd();
    std::cout << (good ? "within" : "NOT within") << " the limit: " << options.rate << " frames/s each\n";
    return options.assertLimits && !good ? 1 : 0;
}

} // namespace bench

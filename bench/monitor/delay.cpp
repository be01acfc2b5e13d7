// From a picture's arrival at the player to its pixels.
#include "appliance/players/testing/fake_supervisor.h"
#include "appliance/players/testing/test_pictures.h"
#include "bench/distribution.h"
#include "bench/monitor/measures.h"
#include "bench/picture_server.h"
#include "tests/appliance/appliance.h"

#include <libcommon/clock.h>

#include <csignal>
#include <iostream>

namespace bench {

using appliance::Appliance;
using x_server::XServer;

namespace {

constexpr int counters = 100; // pictures that are sent in turn
constexpr int delaySource = 5;

} // namespace

// At most one picture's time and one refresh of a display with 60 of them.
int measureDelay(const MonitorOptions& options) {
    const double medianLimit = options.median.value_or(40);
    const double worstLimit = options.worst.value_or(57);
    std::vector<std::string> pictures;
    for (int counter = 0; counter < counters; ++counter)
        pictures.push_back(player::jpegPicture(delaySource, counter, options.width, options.height, 1));
    PictureServer camera(pictures);
    player::FakeSupervisor supervisor;
    player::FakeSupervisor::setParameters("[Screen]\nFit = fill\n");
    XServer server(options.width, options.height, true);
    const auto monitor = startMonitor(options, server, player::FakeSupervisor::root());
    const pid_t pid = supervisor.start(Appliance::program("mjpeg_player"),
                                       {"-m", "pal", "-o", "tv", "-n", "3", "-r", "10000", "-P",
                                        std::to_string(camera.port()), "127.0.0.1"});
    if (!supervisor.letShow(pid)) {
        std::cerr << "the player does not start: " << player::FakeSupervisor::log() << '\n';
        return 1;
    }
    DisplayWatch watch(server);
    awaitSource(watch, delaySource);
    Distribution delays;
    std::optional<FrameMark> last;
    const std::int64_t until = gettimeusec() + std::int64_t{60'000} * options.pictures + 10'000'000;
    while (delays.count() < static_cast<std::size_t>(options.pictures)) {
        const auto seen = watch.next(until);
        if (!seen)
            break;
        if (!seen->mark || seen->mark == last)
            continue;
        last = seen->mark;
        delays.add(static_cast<double>(seen->time - camera.sentAt(seen->mark->counter)) / 1000);
    }
    kill(pid, SIGINT);
    supervisor.end(pid);
    endMonitor(*monitor);
    std::cout << options.width << 'x' << options.height
              << ", from a picture's arrival at the player to its pixels:\n  " << delays.summary("ms") << '\n'
              << histogram(delays, 5, "ms");
    const bool good = delays.count() == static_cast<std::size_t>(options.pictures) &&
                      delays.median() <= medianLimit && delays.percentile(99) <= worstLimit;
    std::cout << (good ? "within" : "NOT within") << " the limits: median " << medianLimit
              << " ms, 99 of 100 within " << worstLimit << " ms\n";
    return options.assertLimits && !good ? 1 : 0;
}

} // namespace bench

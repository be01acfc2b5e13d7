#include "bench/monitor/measures.h"
#include "tests/appliance/appliance.h"

#include <libcommon/clock.h>

#include <csignal>

namespace bench {

using appliance::Appliance;
using appliance::Process;
using x_server::XServer;

std::unique_ptr<Process> startMonitor(const MonitorOptions& options, const XServer& server,
                                      const std::string& root) {
    return std::make_unique<Process>(std::vector<std::string>{Appliance::program("decoder-monitor"),
                                                              "--fullscreen", "--back-end", options.backEnd},
                                     std::map<std::string, std::string>{{"DISPLAY", server.display()},
                                                                        {"WAYLAND_DISPLAY", ""},
                                                                        {"APPLIANCE_ROOT", root}},
                                     "");
}

void endMonitor(Process& monitor) {
    monitor.signal(SIGTERM);
    monitor.waitForEnd();
}

std::vector<std::string> sizeArguments(const MonitorOptions& options) {
    return {"--width", std::to_string(options.width), "--height", std::to_string(options.height)};
}

bool awaitSource(DisplayWatch& watch, int source, int seconds) {
    const std::int64_t until = gettimeusec() + std::int64_t{1'000'000} * seconds;
    while (const auto seen = watch.next(until))
        if (seen->mark && seen->mark->source == source)
            return true;
    return false;
}

} // namespace bench

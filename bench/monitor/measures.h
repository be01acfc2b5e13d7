// What monitor_bench measures on the pixels of an X server's screen, and what its measurements share.
#pragma once

#include "bench/display_watch.h"
#include "tests/appliance/process.h"
#include "tests/support/x_server.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace bench {

inline constexpr int skippedStatus = 77; // exit status

struct MonitorOptions {
    int width = 1920;
    int height = 1080;
    int switches = 100;
    double explain = 0; // milliseconds; gaps longer than this are listed picture by picture; 0: none
    int seconds = 10;
    int rounds = 3;
    int pictures = 500;
    bool assertLimits = false;
    std::optional<double> median; // milliseconds; nothing: that of the command
    std::optional<double> worst;
    double ratio = 1.25;
    std::vector<std::string> streams{"h264", "mjpeg"};
    std::string sink = "ximagesink";
    std::string backEnd = "auto";
};

// Each returns the program's exit status: 1 when a limit is passed with `assertLimits`.
int measureGap(const MonitorOptions& options);
int measureCost(const MonitorOptions& options);
int measureDelay(const MonitorOptions& options);

// decoder-monitor on that server, for the appliance below that root.
std::unique_ptr<appliance::Process> startMonitor(const MonitorOptions& options,
                                                 const x_server::XServer& server, const std::string& root);
void endMonitor(appliance::Process& monitor);

// The encoder's arguments for pictures of the screen's size.
std::vector<std::string> sizeArguments(const MonitorOptions& options);

// Waits until the screen shows a picture of that source.
bool awaitSource(DisplayWatch& watch, int source, int seconds = 30);

} // namespace bench

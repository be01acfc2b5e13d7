// The monitor window: shows the composed picture through a GStreamer video sink.
#pragma once

#include <optional>
#include <string>

namespace screen {

struct MonitorOptions {
    std::string sink;           // name of a GStreamer video sink; "": one for the desktop
    bool fullscreen = false;    // if the sink can
    std::optional<int> seconds; // ends after this time
};

// Shows the screen until the window is closed, SIGINT or SIGTERM arrives, or the time is over. Returns the
// program's exit status: 0, or 1 with a message on standard error. Called once, on the main thread.
int runMonitor(const MonitorOptions& options);

} // namespace screen

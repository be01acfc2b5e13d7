// The monitor window: shows the composed picture through a GStreamer video sink.
#pragma once

#include <optional>
#include <string>

namespace screen {

struct MonitorOptions {
    std::string sink;           // name of a GStreamer video sink; "" chooses one for the desktop
    bool fullscreen = false;    // where the sink can
    std::optional<int> seconds; // stops after so long
};

// Shows the screen until the window is closed, SIGINT or SIGTERM comes, or the time is over. Returns the
// program's exit status: 0, or 1 with a message on standard error. Call once, on the main thread.
int runMonitor(const MonitorOptions& options);

} // namespace screen

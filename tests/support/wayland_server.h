// A Wayland compositor whose display is a window on an X server without a display.
#pragma once

#include "tests/support/x_server.h"

#include <memory>
#include <string>

namespace x_server {

// Weston, which shows one window over its whole output. It needs the X server as long as it lives. One thread.
class WaylandServer {
public:
    // Its output covers the X server's screen, which has that size. Throws std::runtime_error when it does not start.
    WaylandServer(const XServer& server, int width, int height);
    ~WaylandServer();

    // Why no compositor can be started on this machine; "" when it can.
    static std::string whyNot();

    const std::string& display() const { return display_; }      // WAYLAND_DISPLAY
    const std::string& runtimeFolder() const { return folder_; } // XDG_RUNTIME_DIR

    void stop();
    void start(); // again

private:
    std::string xDisplay_;
    std::string folder_;
    std::string display_ = "wayland-test";
    int width_;
    int height_;
    std::unique_ptr<appliance::Process> process_;
};

} // namespace x_server

#include "tests/support/wayland_server.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <unistd.h>

namespace x_server {
namespace {

constexpr const char* program = "/usr/bin/weston";

} // namespace

std::string WaylandServer::whyNot() {
    if (access(program, X_OK) != 0)
        return std::string(program) + " is not installed";
    return XServer::whyNot();
}

WaylandServer::WaylandServer(const XServer& server, int width, int height)
    : xDisplay_(server.display()), width_(width), height_(height) {
    char folder[] = "/tmp/wayland-server-XXXXXX"; // private to the user, as a compositor wants it
    folder_ = mkdtemp(folder);
    start();
}

WaylandServer::~WaylandServer() {
    stop();
    std::filesystem::remove_all(folder_);
}

void WaylandServer::stop() {
    if (process_ == nullptr)
        return;
    process_->signal(SIGTERM);
    process_->waitForEnd(appliance::Seconds(5));
    process_.reset();
    std::filesystem::remove(folder_ + '/' + display_);
}

// The compositor on the CPU, with the shell that shows one window on the whole output.
void WaylandServer::start() {
    process_ = std::make_unique<appliance::Process>(
        std::vector<std::string>{program, "--backend=x11-backend.so", "--use-pixman", "--no-config",
                                 "--shell=kiosk-shell.so", "--idle-time=0", "--socket=" + display_,
                                 "--width=" + std::to_string(width_), "--height=" + std::to_string(height_)},
        std::map<std::string, std::string>{{"DISPLAY", xDisplay_}, {"XDG_RUNTIME_DIR", folder_}},
        folder_ + "/output");
    const bool started = appliance::eventually(
        [&] { return !process_->running() || access((folder_ + '/' + display_).c_str(), F_OK) == 0; });
    if (!started || !process_->running())
        throw std::runtime_error("weston does not start: " + appliance::readFile(folder_ + "/output"));
}

} // namespace x_server

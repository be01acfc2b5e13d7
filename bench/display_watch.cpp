#include "bench/display_watch.h"

#include <libcommon/clock.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <thread>

#include <X11/Xlib.h>

namespace bench {
namespace {

constexpr std::chrono::microseconds interval{500};
constexpr int darkest = 8; // brightness of a black pixel, at most

} // namespace

struct DisplayWatch::Connection {
    Display* display = nullptr;
    ~Connection() { XCloseDisplay(display); }
};

DisplayWatch::DisplayWatch(const x_server::XServer& server) : pixels_(server.pixelFile()) {
    Display* display = XOpenDisplay(server.display().c_str());
    if (display == nullptr)
        throw std::runtime_error("the X server " + server.display() + " can't be reached");
    connection_ = std::make_unique<Connection>();
    connection_->display = display;
    last_ = look();
}

DisplayWatch::~DisplayWatch() = default;

// The mark is in the lowest tenth of the picture.
bool DisplayWatch::isBlack() const {
    for (int y = pixels_.height() - pixels_.height() / 10; y < pixels_.height(); ++y)
        for (int x = 0; x < pixels_.width(); ++x)
            if (pixels_.brightness(x, y) > darkest)
                return false;
    return true;
}

Seen DisplayWatch::look() {
    Seen seen;
    seen.mark = pixels_.mark();
    seen.time = gettimeusec();
    if (seen.mark)
        return seen;
    // The server may be drawing. After its answer what it has drawn is whole.
    XSync(connection_->display, False);
    seen.black = isBlack();
    seen.mark = pixels_.mark();
    return seen;
}

std::optional<Seen> DisplayWatch::next(std::int64_t until) {
    const InTime inTime;
    for (;;) {
        const Seen seen = look();
        if (!seen.like(last_)) {
            last_ = seen;
            return seen;
        }
        if (gettimeusec() >= until)
            return std::nullopt;
        std::this_thread::sleep_for(interval);
    }
}

void DisplayWatch::skip() {
    last_ = look();
}

} // namespace bench

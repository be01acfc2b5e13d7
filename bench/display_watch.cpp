#include "bench/display_watch.h"

#include <libcommon/clock.h>

#include <algorithm>
#include <cstring>
#include <poll.h>
#include <stdexcept>

#include <X11/extensions/Xdamage.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

namespace bench {
namespace {

constexpr std::uint32_t blackest = 0x08; // of a colour

bool isBlack(std::uint32_t pixel) {
    return (pixel & 255U) <= blackest && (pixel >> 8 & 255U) <= blackest && (pixel >> 16 & 255U) <= blackest;
}

} // namespace

struct DisplayWatch::Connection {
    Display* display = nullptr;
    Damage damage = 0;
    int damageEvent = 0;

    Window root() const { return DefaultRootWindow(display); }
    ~Connection() { XCloseDisplay(display); }
};

DisplayWatch::DisplayWatch(const std::string& name, int width, int height)
    : width_(width), height_(height), picture_(static_cast<std::size_t>(width) * height) {
    Display* display = XOpenDisplay(name.c_str());
    if (display == nullptr)
        throw std::runtime_error("the X server " + name + " can't be reached");
    connection_ = std::make_unique<Connection>();
    connection_->display = display;
    int error = 0;
    if (XDamageQueryExtension(display, &connection_->damageEvent, &error) == False)
        throw std::runtime_error("the X server " + name + " does not tell about changes");
    connection_->damage = XDamageCreate(display, connection_->root(), XDamageReportNonEmpty);
    XSync(display, False);
}

DisplayWatch::~DisplayWatch() = default;

// The mark is in the lowest tenth of the picture.
void DisplayWatch::readStrip(Seen& seen) {
    const int rows = height_ / 10 + 2;
    const int top = height_ - rows;
    XImage* image = XGetImage(connection_->display, connection_->root(), 0, top,
                              static_cast<unsigned>(width_), static_cast<unsigned>(rows), AllPlanes, ZPixmap);
    if (image == nullptr)
        return;
    for (int row = 0; row < rows; ++row)
        std::memcpy(picture_.data() + static_cast<std::size_t>(top + row) * width_,
                    image->data + row * image->bytes_per_line, std::size_t{4} * width_);
    XDestroyImage(image);
    seen.black =
        std::all_of(picture_.begin() + static_cast<std::ptrdiff_t>(top) * width_, picture_.end(), isBlack);
    seen.mark =
        readFrameMark(reinterpret_cast<const std::uint8_t*>(picture_.data()), width_, height_, 4 * width_);
}

std::optional<Seen> DisplayWatch::next(std::int64_t until) {
    Display* display = connection_->display;
    for (;;) {
        while (XPending(display) > 0) {
            XEvent event;
            XNextEvent(display, &event);
            if (event.type != connection_->damageEvent + XDamageNotify)
                continue;
            Seen seen;
            seen.time = gettimeusec();
            XDamageSubtract(display, connection_->damage, None, None);
            readStrip(seen);
            return seen;
        }
        const std::int64_t left = until - gettimeusec();
        if (left <= 0)
            return std::nullopt;
        pollfd waited{ConnectionNumber(display), POLLIN, 0};
        poll(&waited, 1, static_cast<int>(left / 1000 + 1));
    }
}

void DisplayWatch::skip() {
    while (next(0)) {
    }
}

} // namespace bench

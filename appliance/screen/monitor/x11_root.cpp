#include "appliance/screen/monitor/x11_root.h"

#include <cstring>
#include <memory>
#include <SDL.h>
#include <SDL_syswm.h>
#include <X11/Xlib.h>

namespace screen {
namespace {

struct Close {
    void operator()(Display* display) const { XCloseDisplay(display); }
};

std::optional<Size> sizeOf(Display* display, Window root) {
    XWindowAttributes attributes;
    if (XGetWindowAttributes(display, root, &attributes) == 0)
        return std::nullopt;
    return Size{attributes.width, attributes.height};
}

// Nothing where the window is not one of X11.
std::optional<SDL_SysWMinfo> windowInfo(SDL_Window* window) {
    SDL_SysWMinfo info;
    SDL_VERSION(&info.version);
    if (SDL_GetWindowWMInfo(window, &info) == SDL_FALSE || info.subsystem != SDL_SYSWM_X11)
        return std::nullopt;
    return info;
}

} // namespace

std::optional<Size> x11RootWithoutManager() {
    const char* driver = SDL_GetCurrentVideoDriver();
    if (driver == nullptr || std::strcmp(driver, "x11") != 0)
        return std::nullopt;
    // A connection of its own: SDL has none to offer before the first window.
    const std::unique_ptr<Display, Close> display(XOpenDisplay(nullptr));
    if (display == nullptr)
        return std::nullopt;
    const Window root = DefaultRootWindow(display.get());
    const Atom name = XInternAtom(display.get(), "_NET_SUPPORTING_WM_CHECK", False);
    Atom type = None;
    int format = 0;
    unsigned long count = 0;
    unsigned long left = 0;
    unsigned char* data = nullptr;
    XGetWindowProperty(display.get(), root, name, 0, 1, False, AnyPropertyType, &type, &format, &count, &left,
                       &data);
    if (data != nullptr)
        XFree(data);
    return type == None ? sizeOf(display.get(), root) : std::nullopt;
}

std::optional<Size> x11RootSize(SDL_Window* window) {
    const auto info = windowInfo(window);
    if (!info)
        return std::nullopt;
    return sizeOf(info->info.x11.display, DefaultRootWindow(info->info.x11.display));
}

void x11KeepWhileGrowing(SDL_Window* window) {
    const auto info = windowInfo(window);
    if (!info)
        return;
    XSetWindowAttributes attributes{};
    attributes.background_pixel = 0;
    attributes.bit_gravity = NorthWestGravity;
    XChangeWindowAttributes(info->info.x11.display, info->info.x11.window, CWBackPixel | CWBitGravity,
                            &attributes);
}

} // namespace screen

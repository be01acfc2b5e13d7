#include "appliance/screen/monitor/window.h"

#include "appliance/screen/monitor/connectors.h"
#include "appliance/screen/monitor/x11_root.h"

#include <algorithm>
#include <cstdlib>
#include <SDL.h>
#include <SDL_syswm.h>
#include <strings.h>

namespace screen {
namespace {

constexpr const char* consoleDriver = "KMSDRM";

bool isSet(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr && *value != '\0';
}

void setHints(const std::string& driver) {
    SDL_SetHint(SDL_HINT_VIDEODRIVER, driver.c_str());
    SDL_SetHint(SDL_HINT_NO_SIGNAL_HANDLERS, "1");
    SDL_SetHint(SDL_HINT_VIDEO_ALLOW_SCREENSAVER, "0"); // the display stays awake
    SDL_SetHint(SDL_HINT_VIDEO_MINIMIZE_ON_FOCUS_LOSS, "0");
    SDL_SetHint(SDL_HINT_VIDEO_X11_NET_WM_BYPASS_COMPOSITOR, "1");
    SDL_SetHint(SDL_HINT_RENDER_SCALE_QUALITY, "linear");
    // X11 takes a surface from shared memory. SDL's default is a detour through OpenGL, with another window.
    if (driver == "x11")
        SDL_SetHint(SDL_HINT_FRAMEBUFFER_ACCELERATION, "0");
    SDL_SetHint(SDL_HINT_APP_NAME, "decoder-monitor");
    SDL_SetHint(SDL_HINT_VIDEO_WAYLAND_ALLOW_LIBDECOR, "1");
    SDL_SetHint("SDL_VIDEO_X11_WMCLASS", "decoder-monitor");
    SDL_SetHint("SDL_VIDEO_WAYLAND_WMCLASS", "decoder-monitor");
    // Otherwise SDL switches the kernel's keyboard off, and with it the keys that change the console.
    setenv("SDL_INPUT_LINUX_KEEP_KBD", "1", 0);
}

// The open display device of a console; -1 when SDL does not tell it.
int cardOf(SDL_Window* window) {
    SDL_SysWMinfo info;
    SDL_VERSION(&info.version);
    if (SDL_GetWindowWMInfo(window, &info) != SDL_TRUE || info.subsystem != SDL_SYSWM_KMSDRM)
        return -1;
    return info.info.kmsdrm.drm_fd;
}

} // namespace

std::vector<std::string> displayDrivers() {
    if (isSet("SDL_VIDEODRIVER"))
        return {std::getenv("SDL_VIDEODRIVER")};
    std::vector<std::string> drivers;
    if (isSet("WAYLAND_DISPLAY"))
        drivers.emplace_back("wayland");
    if (isSet("DISPLAY"))
        drivers.emplace_back("x11");
    if (drivers.empty())
        drivers.emplace_back(consoleDriver);
    return drivers;
}

std::unique_ptr<Window> Window::open(const WindowOptions& options, std::string& reason) {
    std::unique_ptr<Window> window(new Window);
    return window->start(options, reason) ? std::move(window) : nullptr;
}

bool Window::start(const WindowOptions& options, std::string& reason) {
    setHints(options.driver);
    if (SDL_InitSubSystem(SDL_INIT_VIDEO) != 0) {
        reason = SDL_GetError();
        return false;
    }
    console_ = strcasecmp(SDL_GetCurrentVideoDriver(), consoleDriver) == 0;
    connectors_ = console_ ? connectorsText() : "";
    windowed_ = options.size;
    fullscreen_ = console_ || options.fullscreen.value_or(false);
    std::uint32_t flags = SDL_WINDOW_RESIZABLE | SDL_WINDOW_ALLOW_HIGHDPI;
    if (options.hidden)
        flags |= SDL_WINDOW_HIDDEN;
    // Without a window manager nobody makes the window full screen, so it is a window as large as the display.
    const std::optional<Size> root = x11RootWithoutManager();
    unmanaged_ = root.has_value();
    // The text console keeps its first size, and with it a smaller mode than that of a display plugged in later.
    const std::optional<Size> display = console_ ? soleDisplay() : std::nullopt;
    if (fullscreen_ && !unmanaged_)
        flags |= display ? SDL_WINDOW_FULLSCREEN : SDL_WINDOW_FULLSCREEN_DESKTOP;
    const bool cover = fullscreen_ && unmanaged_;
    root_ = cover ? *root : Size{};
    const Size size = cover ? root_ : display.value_or(windowed_);
    const int corner = unmanaged_ ? 0 : SDL_WINDOWPOS_UNDEFINED;
    window_ = SDL_CreateWindow("Network video decoder", corner, corner, size.width, size.height, flags);
    if (window_ == nullptr) {
        reason = SDL_GetError();
        return false;
    }
    x11KeepWhileGrowing(window_);
    SDL_DisableScreenSaver();
    SDL_ShowCursor(fullscreen_ ? SDL_DISABLE : SDL_ENABLE);
    if (unmanaged_ && !options.hidden)
        SDL_SetWindowInputFocus(window_); // nobody else gives it the keyboard
    return true;
}

Window::~Window() {
    if (window_ != nullptr)
        SDL_DestroyWindow(window_);
    SDL_QuitSubSystem(SDL_INIT_VIDEO);
}

Size Window::size() const {
    Size size;
    SDL_GetWindowSizeInPixels(window_, &size.width, &size.height);
    return {std::max(size.width, 1), std::max(size.height, 1)};
}

void Window::setFullscreen(bool fullscreen) {
    fullscreen_ = fullscreen || console_;
    SDL_ShowCursor(fullscreen_ ? SDL_DISABLE : SDL_ENABLE);
    if (console_)
        return;
    if (!unmanaged_) {
        SDL_SetWindowFullscreen(window_, fullscreen_ ? SDL_WINDOW_FULLSCREEN_DESKTOP : 0);
        return;
    }
    root_ = {};
    if (fullscreen_)
        coverRoot();
    else
        SDL_SetWindowSize(window_, windowed_.width, windowed_.height);
}

void Window::coverRoot() {
    const auto root = x11RootSize(window_);
    if (!root || *root == root_)
        return;
    root_ = *root;
    SDL_SetWindowSize(window_, root_.width, root_.height);
    SDL_SetWindowPosition(window_, 0, 0);
}

bool Window::followDisplay() {
    if (console_) {
        if (hotplug_.happened())
            probeDisplays(cardOf(window_));
        return connectorsText() != connectors_;
    }
    if (unmanaged_ && fullscreen_)
        coverRoot();
    return false;
}

} // namespace screen

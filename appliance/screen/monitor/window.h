// The window on a desktop, or the whole display of a console.
#pragma once

#include "appliance/screen/layout.h"
#include "appliance/screen/monitor/hotplug.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

struct SDL_Window;

namespace screen {

struct WindowOptions {
    std::string driver;             // of SDL: "wayland", "x11", "KMSDRM"
    std::optional<bool> fullscreen; // nothing: on a console only
    Size size{1280, 720};           // of a window that is not full screen
    bool hidden = false;            // for a probe
};

// The drivers to try here, best first: of the desktop, or of the console where there is none. SDL_VIDEODRIVER in the
// environment has precedence.
std::vector<std::string> displayDrivers();

// For one thread; one at a time, because it starts and ends SDL's video.
class Window {
public:
    // Null with a `reason` when the display can't be opened.
    static std::unique_ptr<Window> open(const WindowOptions& options, std::string& reason);
    ~Window();
    Window(const Window&) = delete;
    Window& operator=(const Window&) = delete;

    SDL_Window* sdl() { return window_; }
    Size size() const; // of its inside, pixels
    bool console() const { return console_; }
    bool fullscreen() const { return fullscreen_; }
    void setFullscreen(bool fullscreen);

    // Follows the size of the display where nobody else does. True when the displays have changed so that the session
    // must begin again. Call it about once a second.
    bool followDisplay();

private:
    Window() = default;
    bool start(const WindowOptions& options, std::string& reason);
    void coverRoot();

    SDL_Window* window_ = nullptr;
    bool console_ = false;
    bool unmanaged_ = false; // an X server without a window manager: nobody else makes the window full screen
    bool fullscreen_ = false;
    Size windowed_;          // its size when it is not full screen
    Size root_;              // of the X server, when the window covered it last
    std::string connectors_; // of the console's displays
    Hotplug hotplug_;        // before SDL looks at them
};

} // namespace screen

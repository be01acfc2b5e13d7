// An X server without a display, and what its screen shows.
#pragma once

#include "tests/appliance/process.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace x_server {

// A piece of the screen: 0x00RRGGBB, row by row.
struct Image {
    int width = 0;
    int height = 0;
    std::vector<std::uint32_t> pixels;

    std::uint32_t at(int x, int y) const { return pixels[static_cast<std::size_t>(y) * width + x]; }
    bool allBlack() const;
};

// Xvfb with one screen, without a window manager. The destructor ends it. One thread.
class XServer {
public:
    // Throws std::runtime_error when it does not start. With `pixelFile` its pixels are in a file, too.
    XServer(int width, int height, bool pixelFile = false);
    ~XServer();

    // Why no X server can be started on this machine; "" when it can.
    static std::string whyNot();

    const std::string& display() const { return display_; } // ":12"
    std::string number() const { return display_.substr(1); }

    // The file with the pixels of the screen (an X window dump that the server changes in place).
    std::string pixelFile() const { return folder_ + "/Xvfb_screen0"; }

    // Kills it, as if it crashed.
    void kill();
    // Starts it again, with the same number.
    void start();

    // Gives the screen another size, at most the one it was started with, as RandR does. False: refused.
    bool resize(int width, int height);

    Image screen();
    Image part(int x, int y, int width, int height); // of the screen; inside of it

    // Paints over whatever window is there.
    void fill(int x, int y, int width, int height, std::uint32_t colour);

    // The pointer's image has no visible pixel.
    bool pointerHidden();

    // Whether the screen saver may switch the screen off now: puts its timeout to one second and looks whether it does.
    bool fallsAsleep();

    // The windows' titles and sizes: "Network video decoder 1280x720", those of others included.
    std::vector<std::string> windows();

    void movePointer(int x, int y);

    // Sends keys with xdotool: "space", "Right". `down` and `up` for a key that is held.
    void key(const std::string& name);
    void keyDown(const std::string& name);
    void keyUp(const std::string& name);

private:
    struct Connection;
    bool startAs(const std::string& display);
    Connection& connection(); // opened at the first use
    void xdotool(const std::vector<std::string>& arguments);

    int width_;
    int height_;
    bool pixelFile_;
    std::string folder_;
    std::string display_;
    std::unique_ptr<appliance::Process> process_;
    std::unique_ptr<Connection> connection_;
};

} // namespace x_server

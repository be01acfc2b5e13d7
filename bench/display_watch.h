// Watches what an X server's screen shows, picture by picture.
#pragma once

#include "appliance/mark/frame_mark.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace bench {

// The screen after a change.
struct Seen {
    std::int64_t time = 0;         // of the change, on gettimeusec()'s clock
    std::optional<FrameMark> mark; // nothing: damaged or missing
    bool black = false;            // the strip of the mark is black
};

// Reads the mark of pictures that cover the whole screen. One thread.
class DisplayWatch {
public:
    // Throws std::runtime_error when the server can't be watched.
    DisplayWatch(const std::string& display, int width, int height);
    ~DisplayWatch();
    DisplayWatch(const DisplayWatch&) = delete;
    DisplayWatch& operator=(const DisplayWatch&) = delete;

    // Waits for the next change of the screen, at most until that time.
    std::optional<Seen> next(std::int64_t until);

    // Forgets changes that nobody has waited for.
    void skip();

private:
    struct Connection;

    void readStrip(Seen& seen);

    std::unique_ptr<Connection> connection_;
    int width_;
    int height_;
    std::vector<std::uint32_t> picture_; // of the whole screen, of which only the strip is read
};

} // namespace bench

// Watches what an X server's screen shows, picture by picture.
#pragma once

#include "appliance/mark/frame_mark.h"
#include "bench/screen/pixels.h"
#include "tests/support/x_server.h"

#include <cstdint>
#include <memory>
#include <optional>

namespace bench {

// The screen after a change.
struct Seen {
    std::int64_t time = 0;         // when the change was seen, on gettimeusec()'s clock
    std::optional<FrameMark> mark; // nothing: damaged or missing
    bool black = false;            // the strip of the mark is black

    // Whether the screen looks the same.
    bool like(const Seen& other) const { return mark == other.mark && black == other.black; }
};

// Reads the mark of pictures that cover the whole screen, twice in a millisecond, from the server's own memory: a
// picture that is shown for a millisecond only is seen. One thread, which has
// real-time priority while it waits, where that is allowed.
class DisplayWatch {
public:
    // The server needs a pixel file. Throws std::runtime_error when it can't be watched.
    explicit DisplayWatch(const x_server::XServer& server);
    ~DisplayWatch();
    DisplayWatch(const DisplayWatch&) = delete;
    DisplayWatch& operator=(const DisplayWatch&) = delete;

    // Waits for the next change of the screen, at most until that time.
    std::optional<Seen> next(std::int64_t until);

    // Forgets changes that nobody has waited for.
    void skip();

private:
    struct Connection;

    Seen look();
    bool isBlack() const;

    Pixels pixels_;
    std::unique_ptr<Connection> connection_;
    Seen last_;
};

} // namespace bench

// What a session shows, and what an operator's keys and clicks mean there.
#pragma once

#include "appliance/screen/monitor/back_end.h"

#include <optional>
#include <vector>

namespace screen {

enum class KeyKind {
    digit, // `digit` is 0 to 9
    next,
    previous,
    button, // the decoder's button
    name,   // the source's name on the picture
    mute,
    back, // from one decoder to all of them
};

struct Key {
    KeyKind kind = KeyKind::digit;
    int digit = 0;
};

// For one thread, that of the window.
class Content {
public:
    Content() = default;
    Content(const Content&) = delete;
    Content& operator=(const Content&) = delete;
    virtual ~Content() = default;

    // What a window of that size shows now. Cheap: no pixels are touched. The parts don't overlap and are inside the
    // window; valid until the next call.
    virtual const std::vector<Part>& parts(Size window) = 0;

    // Waits until there may be a new frame, at most that long. True: there is one.
    virtual bool wait(int timeoutMs) = 0;

    // A key went down or up. A key that is held goes down only once.
    virtual void keyDown(const Key& key) = 0;
    virtual void keyUp(const Key& key) = 0;

    // The pointer's button was pressed there, in pixels of the window.
    virtual void click(int x, int y) = 0;

    // Time passes: called some times a second, for keys that are held and numbers that are typed.
    virtual void tick() = 0;
};

} // namespace screen

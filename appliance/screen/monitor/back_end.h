// What draws the looks of one or more decoders into the window.
//
// There are two back ends: one in memory, which works everywhere, and one on the graphics processor. Both draw the same
// looks; a test bounds their difference. For one thread, that of the window.
#pragma once

#include "appliance/screen/look.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

struct SDL_Window;

namespace screen {

// Calls its argument on the frame that a look is of; like Composer::visitFrame().
using VisitFrame = std::function<bool(const std::function<void(const PictureView&)>&)>;

// One decoder's screen and its place in the window.
struct Part {
    const Look* look = nullptr;
    Rectangle at; // pixels of the window; the look's screen is scaled to it
    VisitFrame visit;
};

enum class Drawn {
    shown,
    stale,  // a frame was overwritten while it was drawn: look again. What the window shows has not changed
    failed, // the display or its driver fails; a log line says why
};

class BackEnd {
public:
    BackEnd() = default;
    BackEnd(const BackEnd&) = delete;
    BackEnd& operator=(const BackEnd&) = delete;
    virtual ~BackEnd() = default;

    // Shows the parts on black. They do not overlap; the index of a part is its identity from call to call. `whole`: the window's content was lost, so that nothing of
    // the last call is still there. Returns when the parts are on their way to the display; where the display tells its
    // refresh, that is the next refresh.
    virtual Drawn show(const std::vector<Part>& parts, bool whole) = 0;
};

// Paints on the CPU into the window's surface, only what has changed. Always works.
std::unique_ptr<BackEnd> makeMemoryBackEnd(SDL_Window* window);

// Draws with the graphics processor. Null with a `reason` when there is no renderer.
std::unique_ptr<BackEnd> makeGpuBackEnd(SDL_Window* window, std::string& reason);

// Where a rectangle of the look's screen is in the window.
Rectangle inWindow(const Part& part, const Rectangle& onScreen);

// What decides the pixels of a part. Two parts with equal marks look the same.
struct PartMark {
    std::uint64_t frame = 0; // 0: blanked
    std::uint64_t overlays = 0;
    PictureShape shape;
    Placing placing;
    ScreenShape screen;
    Rectangle at;

    bool operator==(const PartMark&) const = default;
};
PartMark markOf(const Part& part);

} // namespace screen

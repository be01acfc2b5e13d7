// Composes the monitor's picture: the newest frame, or black, with the on-screen texts in front of it.
//
// The monitor window, the panel's picture and snapshots all show this picture. The frame is visible only if it
// was committed after the screen was last blanked (by osdBlank() or by the store's blank()); otherwise the
// picture is black behind the texts. Texts are white with a dark outline in the upper third: line 0 at the top,
// each line at its own place. A long text takes more rows, as long as all texts stay in the upper two fifths;
// a text that is still too long ends in an ellipsis.
#pragma once

#include "appliance/screen/frame_store.h"

#include <libcommon/display.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace screen {

using ScreenText = std::array<std::string, libcommon::osdLines>; // UTF-8; invalid bytes are replaced

// The composed picture.
struct Picture {
    FrameInfo info; // of the newest frame, visible or not; number 0: there is none
    VideoMode mode = VideoMode::pal;
    int width = 0;
    int height = 0;
    bool blanked = true;               // no frame is visible
    std::vector<std::uint32_t> pixels; // width * height, 0x00RRGGBB
};

// Composes pictures. Keeps the rendered texts until they change: rendering costs more than all the rest. For
// one thread at a time.
class Composer {
public:
    Composer();                          // of this appliance's screen
    explicit Composer(FrameStore store); // of another store
    Composer(Composer&&) noexcept;
    ~Composer();

    // The screen as it is now. The reference is valid until the next call.
    const Picture& compose();

    // Composes the given parts. `frame` may be null (none yet); `blankedAt` is a time on gettimeusec()'s clock.
    const Picture& compose(const Frame* frame, VideoMode mode, std::int64_t blankedAt,
                           const ScreenText& text);

    // Waits for a new frame, like FrameStore::wait. A change of the texts does not end the wait, so compose again
    // from time to time.
    std::uint64_t wait(std::uint64_t seen, int timeoutMs);

private:
    struct TextLayer;

    FrameStore store_;
    Frame frame_;
    Picture picture_;
    std::unique_ptr<TextLayer> text_;
};

// Encodes the picture as PNG; empty with a log line on failure.
std::vector<std::uint8_t> pngOf(const Picture& picture);

// Writes the picture to a PNG file. False with errno and a log line on failure; an incomplete file is removed.
bool writePng(const Picture& picture, const std::string& path);

} // namespace screen

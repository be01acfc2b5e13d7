// What a person sees on the monitor: the newest frame, or black, with the on-screen texts in front of it.
//
// This is the one place where the picture is put together; the monitor window, the panel's picture and
// snapshots all show what it makes. The frame is seen only when it was handed in after the screen was last
// blanked (by osdBlank() or by the store's blank()); else the picture is black behind the texts. Texts are
// white with a dark outline in the upper third: line 0 on top, each line in its own place. Long texts take
// more rows, as long as all stays in the upper two fifths; what is still too long ends in an ellipsis.
#pragma once

#include "appliance/screen/frame_store.h"

#include <libcommon/display.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace screen {

using ScreenText = std::array<std::string, libcommon::osdLines>; // UTF-8; what isn't is replaced

// The finished picture.
struct Picture {
    FrameInfo info; // of the newest frame, also when it is not to be seen; number 0: there is none
    VideoMode mode = VideoMode::pal;
    int width = 0;
    int height = 0;
    bool blanked = true;               // no frame is seen
    std::vector<std::uint32_t> pixels; // width * height, 0x00RRGGBB
};

// Puts pictures together. Keeps the drawn texts, which cost more than all the rest, until they change. One
// thread at a time.
class Composer {
public:
    Composer();                          // of this appliance's screen
    explicit Composer(FrameStore store); // of another store
    Composer(Composer&&) noexcept;
    ~Composer();

    // The screen as it is now. The reference holds until the next call.
    const Picture& compose();

    // The same of given parts: `frame` may be null (none yet); `blankedAt` is a time on gettimeusec()'s
    // clock.
    const Picture& compose(const Frame* frame, VideoMode mode, std::int64_t blankedAt,
                           const ScreenText& text);

    // Waits for something new to show, as FrameStore::wait. Texts change without notice: for them, compose
    // again after a while.
    std::uint64_t wait(std::uint64_t seen, int timeoutMs);

private:
    struct TextLayer;

    FrameStore store_;
    Frame frame_;
    Picture picture_;
    std::unique_ptr<TextLayer> text_;
};

// The picture as a PNG file; empty, with a log line, on failure.
std::vector<std::uint8_t> pngOf(const Picture& picture);

// Writes it as a PNG file. False on failure, with errno and a log line; a half-written file is removed.
bool writePng(const Picture& picture, const std::string& path);

} // namespace screen

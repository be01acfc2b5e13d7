// Composes the monitor's picture: the newest frame, or black, with the on-screen texts and the label in front of it.
//
// The monitor window, the panel's picture and snapshots all show this picture. A Composer decides what is shown
// (look()); a painter on the CPU (compose()) or on a GPU draws it. The frame is visible only if it was committed after
// the screen was last blanked (by osdBlank() or by the store's blank()); otherwise the screen is black behind the texts.
//
// The size of the screen is Screen.Size. With `auto` it is the monitor's own. A program without a monitor uses the
// size that decoder-monitor publishes while it runs; without one, the size of the mode's television.
#pragma once

#include "appliance/screen/frame_store.h"
#include "appliance/screen/look.h"
#include "appliance/screen/picture.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace screen {

// Keeps the rendered texts until they change. For one thread at a time.
class Composer {
public:
    Composer(); // of this appliance's screen
    explicit Composer(
        FrameStore store); // of another store, with this appliance's texts, parameters and sources
    Composer(Composer&&) noexcept;
    ~Composer();

    // Uses a screen of this shape from now on, whatever Screen.Size says; nothing: Screen.Size again.
    void useScreen(std::optional<ScreenShape> screen);

    // From now on, look() does not pass over the last frame of a player whose frames it looked at: if the first frame of
    // the next player is already there, the next call of look() has that one. For a monitor: the old source's picture
    // moves until the new one's is there. Programs that look now and then always want the newest frame.
    void showLastPictures();

    // What is to be shown now: the newest frame. Cheap: no pixel of the frame is read. `monitor` is the screen to use with
    // Screen.Size = auto. The reference is valid until the next call.
    const Look& look(const ScreenShape* monitor = nullptr);

    // Calls `visit` on the frame that the last look() is of, in the store's own memory. True when the frame was whole all
    // the time, even if there is a newer one by now. False when the store does not have that frame any more: throw away
    // what was made of it, and look() again. Also false when the look has no visible frame; `visit` is then not called.
    bool visitFrame(const std::function<void(const PictureView&)>& visit);

    // Draws what is to be shown now on the CPU. The reference is valid until the next call.
    const Picture& compose(const ScreenShape* monitor = nullptr);

    // Waits for a new frame, like FrameStore::wait. A change of the texts does not end the wait, so look again from time
    // to time.
    std::uint64_t wait(std::uint64_t seen, int timeoutMs);

    // Shows a short message above the label for that time, such as an answer to an operator's key. It replaces an earlier
    // one; an empty text removes it.
    void notice(const std::string& text, int milliseconds);

    // Shows the source's name, or hides it if it is shown now, from now on and whatever Screen.ShowName says.
    void toggleName();

private:
    class Parts;
    std::unique_ptr<Parts> parts_;
};

} // namespace screen

// Shows the decoded pictures and notices when they stop coming or changing.
//
// The stream's thread passes every decoded picture in. Until the player takes the screen over, a copy of the newest
// picture is kept, so that it can be shown at once. From then on each picture is copied directly into the frame store's
// memory, in the format and size that the decoder made; it is scaled and converted where it is shown. A picture that
// equals the one before, bit for bit, is shown but does not count as a change: an encoder without a camera signal
// repeats its last picture, while noise makes every picture of a camera different. Drawn pictures such as test cards
// may be equal, too, and count as not changing.
#pragma once

#include "appliance/players/showing/player_options.h"
#include "appliance/screen/frame_store.h"

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>

namespace player {

class Presenter {
public:
    // `firstPicture` is called once, on the stream's thread, when the first picture is ready to be shown.
    Presenter(const PlayerOptions& options, screen::FrameStore store, std::function<void()> firstPicture);
    ~Presenter() = default;
    Presenter(const Presenter&) = delete;
    Presenter& operator=(const Presenter&) = delete;

    // Takes a decoded picture in I420 or NV12; one that can't be shown is dropped, with a log line the first time. The
    // stream's thread.
    void picture(const screen::PictureView& picture);

    // Takes the screen over and shows the newest picture. Any thread.
    void show();

    // Stops drawing; finishes a drawing in progress before it returns. Any thread.
    void stop();

    // Returns right after a drawing: at once when the last one is at most `freshMs` old, otherwise after the
    // next one or after `patienceMs`. Any thread.
    void waitForDrawing(int freshMs, int patienceMs);

    bool showing() const;
    void awaitShowing();

    // When the last picture came, whether it was equal to the one before or not, and when the content last changed. On
    // gettimeusec()'s clock; 0: there was no picture yet. Any thread.
    std::int64_t lastPicture() const;
    std::int64_t lastChange() const;

private:
    bool isUsable(const screen::PictureView& picture);
    bool smooths(const screen::PictureView& picture) const;
    void followShape(const screen::PictureShape& shape);
    std::uint64_t draw(const screen::PictureView& picture);
    std::uint64_t keepReady(const screen::PictureView& picture);

    const PlayerOptions& options_;
    const std::function<void()> firstPicture_;

    mutable std::mutex lock_;       // guards all that follows
    std::condition_variable drawn_; // notified after each drawing and after the take-over
    screen::FrameStore store_;
    screen::PictureShape shape_; // of the last picture
    screen::Frame ready_;        // the newest picture before the take-over; without bytes: none
    std::uint64_t hash_ = 0;
    std::int64_t lastPicture_ = 0;
    std::int64_t lastChange_ = 0;
    std::int64_t lastDrawing_ = 0;
    bool showing_ = false;
    bool stopped_ = false;
    bool refused_ = false; // a picture could not be shown; logged once
};

} // namespace player

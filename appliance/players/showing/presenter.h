// What becomes of the decoded pictures: kept ready, shown, and watched for standing still.
//
// The stream's thread hands in every decoded picture. Before the player's turn the newest is kept converted,
// so that it stands on the screen in the moment of the take-over; from then on each picture is converted
// right into the frame store's memory. A picture that is the same as the one before, bit for bit, is shown
// but does not count as a change: an encoder whose camera is gone sends such pictures, while a camera's
// picture is never the same twice, for its noise. Test cards and other pictures that are drawn may stand
// still by nature and count as stood still too.
#pragma once

#include "appliance/players/showing/picture_converter.h"
#include "appliance/players/showing/player_options.h"
#include "appliance/screen/frame_store.h"

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <gst/gst.h>
#include <mutex>
#include <string>
#include <vector>

namespace player {

class Presenter {
public:
    // `firstPicture` is called once, from the stream's thread, when the first picture is ready to be shown.
    Presenter(const PlayerOptions& options, screen::FrameStore store, std::function<void()> firstPicture);
    ~Presenter();
    Presenter(const Presenter&) = delete;
    Presenter& operator=(const Presenter&) = delete;

    // Takes a decoded picture (video/x-raw); what isn't one is dropped. The stream's thread.
    void picture(GstSample* sample);

    // Takes the screen over and shows the newest picture at once. Any thread.
    void show();

    // Draws no more. A drawing under way is finished before it returns. Any thread.
    void stop();

    // Waits for a moment right after a drawing: returns at once when the last one is at most `freshMs` old,
    // else after the next one, but after `patienceMs` in any case. Any thread.
    void waitForDrawing(int freshMs, int patienceMs);

    bool showing() const;
    void awaitShowing();

    // When the picture last changed, on gettimeusec()'s clock; 0: there was none yet. Any thread.
    std::int64_t lastChange() const;

private:
    void present(const GstVideoFrame& frame);
    void draw(const GstVideoFrame& frame);
    void keepReady(const GstVideoFrame& frame);

    const PlayerOptions& options_;
    const std::function<void()> firstPicture_;

    mutable std::mutex lock_;       // guards all that follows
    std::condition_variable drawn_; // told of each drawing and of the take-over
    screen::FrameStore store_;
    PictureConverter converter_;
    GstCaps* caps_ = nullptr; // of the last sample
    GstVideoInfo info_{};
    std::vector<std::uint32_t> ready_; // the newest picture, converted, while it is not our turn; empty: none
    std::uint64_t hash_ = 0;
    std::int64_t lastChange_ = 0;
    std::int64_t lastDrawing_ = 0;
    bool showing_ = false;
    bool stopped_ = false;
    bool refused_ = false; // the pictures' format can't be converted, which was logged
};

} // namespace player

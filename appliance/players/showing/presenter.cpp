#include "appliance/players/showing/presenter.h"

#include "appliance/players/showing/picture_hash.h"

#include <libcommon/clock.h>
#include <libcommon/log.h>

#include <chrono>
#include <utility>

namespace player {

Presenter::Presenter(const PlayerOptions& options, screen::FrameStore store,
                     std::function<void()> firstPicture)
    : options_(options), firstPicture_(std::move(firstPicture)), store_(std::move(store)),
      converter_(options.interlace, options.turned) {}

Presenter::~Presenter() {
    if (caps_ != nullptr)
        gst_caps_unref(caps_);
}

void Presenter::picture(GstSample* sample) {
    GstCaps* caps = gst_sample_get_caps(sample);
    GstBuffer* buffer = gst_sample_get_buffer(sample);
    if (caps == nullptr || buffer == nullptr)
        return;
    bool first = false;
    {
        const std::lock_guard guard(lock_);
        if (stopped_)
            return;
        if (caps != caps_) {
            if (gst_video_info_from_caps(&info_, caps) == FALSE)
                return;
            gst_caps_replace(&caps_, caps);
            if (options_.verbose)
                logmsg(7, "Pictures of %dx%d", GST_VIDEO_INFO_WIDTH(&info_), GST_VIDEO_INFO_HEIGHT(&info_));
        }
        GstVideoFrame frame;
        if (gst_video_frame_map(&frame, &info_, buffer, GST_MAP_READ) == FALSE)
            return;
        first = lastChange_ == 0;
        present(frame);
        gst_video_frame_unmap(&frame);
        first = first && lastChange_ != 0;
    }
    if (first)
        firstPicture_();
}

void Presenter::present(const GstVideoFrame& frame) {
    if (showing_)
        draw(frame);
    else
        keepReady(frame);
    const std::uint64_t hash = hashOf(frame);
    if (lastChange_ == 0 && ready_.empty())
        return;
    lastPicture_ = gettimeusec();
    if (lastChange_ == 0 || hash != hash_)
        lastChange_ = lastPicture_;
    hash_ = hash;
}

void Presenter::draw(const GstVideoFrame& frame) {
    const screen::VideoMode mode = store_.present() ? store_.mode() : options_.mode;
    screen::Drawing drawing = store_.draw(screen::televisionShape(mode));
    if (!drawing ||
        !converter_.convert(frame, drawing.plane(0), drawing.shape().width, drawing.shape().height))
        return;
    drawing.commit(options_.source);
    lastDrawing_ = gettimeusec();
    drawn_.notify_all();
}

void Presenter::keepReady(const GstVideoFrame& frame) {
    const screen::VideoFormat& format = screen::formatOf(options_.mode);
    ready_.resize(static_cast<std::size_t>(format.width) * static_cast<std::size_t>(format.height));
    if (!converter_.convert(frame, reinterpret_cast<std::uint8_t*>(ready_.data()), format.width,
                            format.height)) {
        ready_.clear();
        if (!std::exchange(refused_, true))
            logmsg(3, "Pictures in the format %s can't be shown", GST_VIDEO_INFO_NAME(&frame.info));
    }
}

void Presenter::show() {
    const std::lock_guard guard(lock_);
    if (stopped_ || showing_ || !store_.takeOver(options_.mode))
        return;
    if (!ready_.empty()) {
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(ready_.data());
        store_.draw(screen::viewOf(screen::televisionShape(options_.mode), bytes), options_.source);
    }
    showing_ = true;
    lastDrawing_ = gettimeusec();
    ready_ = {};
    drawn_.notify_all();
}

void Presenter::stop() {
    const std::lock_guard guard(lock_);
    stopped_ = true;
}

void Presenter::waitForDrawing(int freshMs, int patienceMs) {
    std::unique_lock guard(lock_);
    const std::int64_t fresh = gettimeusec() - std::int64_t{1000} * freshMs;
    drawn_.wait_for(guard, std::chrono::milliseconds(patienceMs),
                    [&] { return lastDrawing_ >= fresh || !showing_; });
}

bool Presenter::showing() const {
    const std::lock_guard guard(lock_);
    return showing_ && !stopped_;
}

void Presenter::awaitShowing() {
    std::unique_lock guard(lock_);
    drawn_.wait(guard, [this] { return showing_; });
}

std::int64_t Presenter::lastPicture() const {
    const std::lock_guard guard(lock_);
    return lastPicture_;
}

std::int64_t Presenter::lastChange() const {
    const std::lock_guard guard(lock_);
    return lastChange_;
}

} // namespace player

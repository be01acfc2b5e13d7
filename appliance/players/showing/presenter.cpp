#include "appliance/players/showing/presenter.h"

#include "appliance/players/showing/interlaced.h"
#include "appliance/players/showing/picture_copy.h"
#include "appliance/players/showing/shown_shape.h"

#include <libcommon/clock.h>
#include <libcommon/log.h>

#include <chrono>
#include <utility>

namespace player {

Presenter::Presenter(const PlayerOptions& options, screen::FrameStore store,
                     std::function<void()> firstPicture)
    : options_(options), firstPicture_(std::move(firstPicture)), store_(std::move(store)) {}

void Presenter::picture(const screen::PictureView& given) {
    bool first = false;
    {
        const std::lock_guard guard(lock_);
        if (stopped_ || !isUsable(given))
            return;
        screen::PictureView picture = given;
        picture.shape = shownShape(given.shape, options_.turned);
        followShape(picture.shape);
        const std::uint64_t hash = showing_ ? draw(picture) : keepReady(picture);
        first = lastPicture_ == 0;
        lastPicture_ = gettimeusec();
        if (first || hash != hash_)
            lastChange_ = lastPicture_;
        hash_ = hash;
    }
    if (first)
        firstPicture_();
}

bool Presenter::isUsable(const screen::PictureView& picture) {
    const char* fault = screen::faultOf(picture);
    if (fault == nullptr && picture.shape.format == screen::PixelFormat::bgrx)
        fault = "they are in colours";
    if (fault != nullptr && !std::exchange(refused_, true))
        logmsg(3, "Pictures of %dx%d can't be shown: %s", picture.shape.width, picture.shape.height, fault);
    return fault == nullptr;
}

// Makes room for pictures of a new shape before the player shows, so that its first drawing need not wait for it.
void Presenter::followShape(const screen::PictureShape& shape) {
    if (shape == shape_)
        return;
    shape_ = shape;
    if (!showing_)
        store_.reserve(shape);
    if (options_.verbose)
        logmsg(7, "Pictures of %dx%d", shape.width, shape.height);
}

bool Presenter::smooths(const screen::PictureView& picture) const {
    switch (options_.interlace) {
    case Interlace::asItIs:
        return false;
    case Interlace::automatic:
        return showsCombs(picture);
    case Interlace::smoothed:
        return true;
    }
    return false;
}

std::uint64_t Presenter::draw(const screen::PictureView& picture) {
    const bool smooth = smooths(picture); // looked for before the drawing holds the writers' lock
    screen::Drawing drawing = store_.draw(picture.shape);
    PicturePlanes planes;
    for (std::size_t i = 0; drawing && i < planes.plane.size(); ++i) {
        planes.plane[i] = drawing.plane(static_cast<int>(i));
        planes.stride[i] = drawing.stride(static_cast<int>(i));
    }
    const std::uint64_t hash = copyAndHash(picture, planes, smooth);
    if (drawing) {
        drawing.commit(options_.source);
        lastDrawing_ = gettimeusec();
        drawn_.notify_all();
    }
    return hash;
}

std::uint64_t Presenter::keepReady(const screen::PictureView& picture) {
    const screen::PlaneLayouts layouts = screen::planesOf(picture.shape);
    ready_.shape = picture.shape;
    ready_.bytes.resize(screen::bytesOf(picture.shape));
    PicturePlanes planes;
    for (std::size_t i = 0; i < layouts.size(); ++i) {
        planes.plane[i] = layouts[i].rows == 0 ? nullptr : ready_.bytes.data() + layouts[i].offset;
        planes.stride[i] = layouts[i].stride;
    }
    return copyAndHash(picture, planes, smooths(picture));
}

void Presenter::show() {
    const std::lock_guard guard(lock_);
    if (stopped_ || showing_ || !store_.takeOver(options_.mode))
        return;
    if (!ready_.bytes.empty())
        store_.draw(ready_.view(), options_.source);
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

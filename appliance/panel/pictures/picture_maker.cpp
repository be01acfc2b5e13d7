#include "appliance/panel/pictures/picture_maker.h"

#include "appliance/panel/pictures/picture_rate.h"
#include "appliance/panel/pictures/screen_size.h"
#include "appliance/panel/pictures/still_painter.h"
#include "appliance/screen/appliance_view.h"
#include "appliance/screen/composition.h"
#include "appliance/screen/running_monitor.h"
#include "appliance/screen/screen_settings.h"

#include <libcommon/clock.h>
#include <libcommon/log.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <span>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <utility>

// A screen's pixels are numbers, 0x00RRGGBB.
static_assert(std::endian::native == std::endian::little, "their bytes must be B, G, R, X");

namespace panel {
namespace {

constexpr int quality = 80;
constexpr int lowPriority = 10;                    // nice: players go first
constexpr int waitMs = 250;                        // for a frame; then the texts are looked at
constexpr std::int64_t fetchedUs = 5'000'000;      // this long after a fetch the rate is the full one
constexpr std::int64_t unwatchedUs = 1'000'000;    // between pictures that are not fetched
constexpr std::int64_t stillUs = 10'000'000;       // between stills without viewers
constexpr std::int64_t watchedStillUs = 1'000'000; // and with viewers
constexpr std::int64_t afterChangeUs = 1'000'000;  // the first pictures of a source may be grey
constexpr std::int64_t settingsUs = 1'000'000;
constexpr std::size_t keptPictures = 4;

// Of this thread only: on Linux a priority belongs to a thread.
void lowerPriority() {
    setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), lowPriority);
}

// What decides whether a new picture would look like the last.
struct Seen {
    std::uint64_t frame = 0;
    std::uint64_t overlays = 0;
    bool blanked = true;
    screen::ScreenShape screen;

    bool operator==(const Seen&) const = default;
};

} // namespace

class PictureMaker::Thread {
public:
    Thread(News news, std::function<PictureSettings()> settings)
        : news_(std::move(news)), settings_(std::move(settings)), thread_([this] { run(); }) {}
    ~Thread() {
        {
            const std::lock_guard lock(mutex_);
            ends_ = true;
        }
        wake_.notify_all();
        thread_.join();
    }
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    void setViewers(std::size_t viewers) {
        {
            const std::lock_guard lock(mutex_);
            if (viewers > viewers_)
                fetchedAt_ = gettimeusec(); // a new page wants pictures at once
            viewers_ = viewers;
        }
        wake_.notify_all();
    }
    void fetched() {
        const std::lock_guard lock(mutex_);
        const std::int64_t now = gettimeusec();
        const bool slept = now - fetchedAt_ > fetchedUs;
        fetchedAt_ = now;
        if (slept)
            wake_.notify_all();
    }
    void sourceChanged() {
        {
            const std::lock_guard lock(mutex_);
            stillAt_ = gettimeusec() + afterChangeUs;
        }
        wake_.notify_all();
    }
    MadePicture picture(std::uint64_t number) const {
        const std::lock_guard lock(mutex_);
        const MadePicture& wanted = kept_[number % keptPictures];
        return wanted.number == number ? wanted : kept_[newest_ % keptPictures];
    }
    const Stills& stills() const { return stills_; }
    std::uint64_t made() const { return made_; }
    double secondsSpent() const { return static_cast<double>(spentUs_) / 1e6; }

private:
    void run();
    bool pause(std::int64_t until);
    void watchStep();
    void makePicture();
    void takeStillWhenDue(std::int64_t interval);
    void readSettings();
    void keep(MadePicture picture);
    std::int64_t nextPictureAt(std::int64_t began) const;
    bool hasViewers() const {
        const std::lock_guard lock(mutex_);
        return viewers_ > 0;
    }

    News news_;
    std::function<PictureSettings()> settings_;
    Stills stills_;
    std::atomic<std::uint64_t> made_{0};
    std::atomic<std::int64_t> spentUs_{0};

    // Of the thread alone.
    screen::FrameStore store_;
    screen::Composer composer_;
    screen::ApplianceView appliance_;
    screen::SettingsReader screenSettings_;
    StillPainter stillPainter_;
    PictureRate rate_{PictureSettings{}.mostPerSecond};
    std::int64_t settingsAt_ = 0;
    std::int64_t stillTime_ = 0; // of the frame that the last still shows
    Seen seen_;
    bool hasSeen_ = false;

    mutable std::mutex mutex_; // guards what follows
    std::condition_variable wake_;
    bool ends_ = false;
    std::size_t viewers_ = 0;
    std::int64_t fetchedAt_ = 0;
    std::int64_t stillAt_ = 0;
    std::array<MadePicture, keptPictures> kept_;
    std::uint64_t newest_ = 0;

    std::thread thread_; // the last member: it begins when all others are there
};

// Waits until then, or until something has changed. False when the thread is to end.
bool PictureMaker::Thread::pause(std::int64_t until) {
    std::unique_lock lock(mutex_);
    const std::int64_t left = until - gettimeusec();
    if (!ends_ && left > 0)
        wake_.wait_for(lock, std::chrono::microseconds(left));
    return !ends_;
}

void PictureMaker::Thread::run() {
    lowerPriority();
    for (;;) {
        const bool watched = hasViewers();
        takeStillWhenDue(watched ? watchedStillUs : stillUs);
        std::int64_t until = 0;
        if (watched) {
            watchStep();
        } else {
            hasSeen_ = false;
            const std::lock_guard lock(mutex_);
            until = stillAt_;
        }
        if (!pause(until))
            return;
    }
}

// The size of the pictures and their rate follow the configuration and the monitor.
void PictureMaker::Thread::readSettings() {
    const std::int64_t now = gettimeusec();
    if (now < settingsAt_)
        return;
    settingsAt_ = now + settingsUs;
    const PictureSettings settings = settings_();
    rate_.setMost(settings.mostPerSecond);
    const screen::ScreenSettings& screenSettings = screenSettings_.at(now, appliance_);
    screen::ScreenShape shape = screen::defaultScreen(store_.mode());
    if (screenSettings.size)
        shape = screen::screenOf(*screenSettings.size);
    else if (const std::optional<screen::Size> monitor = screen::runningMonitor(appliance_))
        shape = screen::screenOf(*monitor);
    composer_.useScreen(pictureShape(shape, settings.mostWidth));
}

std::int64_t PictureMaker::Thread::nextPictureAt(std::int64_t began) const {
    const std::lock_guard lock(mutex_);
    const bool taken = gettimeusec() - fetchedAt_ < fetchedUs;
    return began + (taken ? rate_.intervalUs() : std::max(rate_.intervalUs(), unwatchedUs));
}

// Makes a picture when there is something new, and waits as long as the rate says.
void PictureMaker::Thread::watchStep() {
    readSettings();
    const screen::Look& look = composer_.look();
    const Seen now{look.info.number, look.overlayVersion, look.blanked, look.screen};
    if (hasSeen_ && now == seen_) {
        composer_.wait(now.frame, waitMs);
        return;
    }
    const std::int64_t began = gettimeusec();
    seen_ = now;
    hasSeen_ = true;
    makePicture();
    const std::int64_t took = gettimeusec() - began;
    spentUs_ += took;
    rate_.took(took);
    pause(nextPictureAt(began));
}

void PictureMaker::Thread::makePicture() {
    const screen::Picture& composed = composer_.compose();
    MadePicture picture;
    picture.width = composed.width();
    picture.height = composed.height();
    picture.blank = composed.blanked;
    picture.source = composed.blanked ? -1 : composed.info.source;
    picture.frame = composed.info.number;
    picture.time = composed.info.time;
    picture.jpeg =
        encodeJpeg(std::as_bytes(std::span(composed.pixels)), picture.width, picture.height, quality);
    if (picture.jpeg == nullptr)
        return logmsg(3, "panel: a picture of %dx%d pixels can't be made a JPEG", picture.width,
                      picture.height);
    keep(std::move(picture));
}

void PictureMaker::Thread::keep(MadePicture picture) {
    {
        const std::lock_guard lock(mutex_);
        picture.number = ++newest_;
        kept_[newest_ % keptPictures] = picture;
    }
    ++made_;
    news_.picture(picture);
}

void PictureMaker::Thread::takeStillWhenDue(std::int64_t interval) {
    const std::int64_t now = gettimeusec();
    {
        const std::lock_guard lock(mutex_);
        if (stillAt_ - now > interval) // the interval has become shorter
            stillAt_ = now + interval;
        if (now < stillAt_)
            return;
        stillAt_ = now + interval;
    }
    if (store_.newestInfo().time == stillTime_)
        return;
    const std::optional<TakenStill> still = stillPainter_.take(store_);
    if (!still)
        return;
    stillTime_ = still->time;
    const std::vector<std::string> names = appliance_.sourceNames();
    const auto index = static_cast<std::size_t>(still->source);
    if (index < names.size() && stills_.keep(names[index], still->jpeg, still->time))
        news_.still();
}

PictureMaker::PictureMaker(News news, std::function<PictureSettings()> settings)
    : thread_(std::make_unique<Thread>(std::move(news), std::move(settings))) {}
PictureMaker::~PictureMaker() = default;

void PictureMaker::setViewers(std::size_t viewers) {
    thread_->setViewers(viewers);
}

void PictureMaker::fetched() {
    thread_->fetched();
}

void PictureMaker::sourceChanged() {
    thread_->sourceChanged();
}

MadePicture PictureMaker::picture(std::uint64_t number) const {
    return thread_->picture(number);
}

const Stills& PictureMaker::stills() const {
    return thread_->stills();
}

std::uint64_t PictureMaker::made() const {
    return thread_->made();
}

double PictureMaker::secondsSpent() const {
    return thread_->secondsSpent();
}

} // namespace panel

#include "appliance/screen/composition.h"

#include "appliance/screen/appliance_view.h"
#include "appliance/screen/label.h"
#include "appliance/screen/label_content.h"
#include "appliance/screen/painter.h"
#include "appliance/screen/running_monitor.h"
#include "appliance/screen/screen_settings.h"
#include "appliance/screen/text_layers.h"

#include <libcommon/clock.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace screen {
namespace {

constexpr std::int64_t monitorIntervalUs = 250'000;

// A frame is overwritten while its record is read only when this process was stopped in between, so once is rare.
constexpr int lookAttempts = 16;

// A player's last picture that is older than this is not worth a moment of the next player's first one.
constexpr std::int64_t lastPictureUs = 500'000;

// How often compose() tries to paint from the store's memory before it takes a copy.
constexpr int directAttempts = 2;

// Since when the pictures have been those of the newest one's source, as far as the store's records reach.
std::int64_t sourceSince(FrameStore& store, const FrameInfo& newest) {
    std::int64_t since = newest.time;
    const std::vector<FrameInfo> infos = store.infosSince(0);
    for (auto info = infos.rbegin(); info != infos.rend() && info->source == newest.source; ++info)
        since = std::min(since, info->time);
    return since;
}

} // namespace

class Composer::Parts {
public:
    explicit Parts(FrameStore store) : store_(std::move(store)) {}

    const Look& look(const ScreenShape* monitor);
    bool visitFrame(const std::function<void(const PictureView&)>& visit);
    const Picture& compose(const ScreenShape* monitor);

    FrameStore& store() { return store_; }
    void useScreen(std::optional<ScreenShape> screen) { screen_ = screen; }
    void showLastPictures() { showsLastPictures_ = true; }
    void toggleName() { labelContent_.toggleName(); }
    void notice(const std::string& text, int milliseconds) {
        notice_ = text;
        noticeEnd_ = gettimeusec() + milliseconds * std::int64_t{1000};
    }

private:
    void lookAtFrame();
    bool lookAt(std::uint64_t number);
    std::uint64_t missedLast();
    void followSource();
    ScreenShape screenNow(std::int64_t now, const ScreenShape* monitor, const ScreenSettings& settings);
    void updateOverlays(std::int64_t now, const ScreenText& texts, const ScreenSettings& settings);

    FrameStore store_;
    ApplianceView appliance_;
    SettingsReader settings_;
    std::optional<ScreenShape> screen_;
    std::optional<Size> runningMonitor_; // as it was a moment ago
    std::int64_t monitorAgainAt_ = 0;    // when to look for it again
    bool showsLastPictures_ = false;
    ShownSource shown_;
    bool hasLooked_ = false;

    TextLayers texts_;
    LabelContent labelContent_;
    Label label_{0};
    Label noticeLabel_{1};
    std::string notice_;
    std::int64_t noticeEnd_ = 0;
    std::vector<OverlayImage> overlays_;
    Look look_;

    Painter painter_;
    Picture picture_;
    Frame copy_;
};

// Takes the record and shape of that frame. False when the store does not have it whole any more.
bool Composer::Parts::lookAt(std::uint64_t number) {
    return store_.visit(number, [this](const PictureView& picture, const FrameInfo& info) {
        look_.info = info;
        look_.shape = picture.shape;
    });
}

// The number of the frame before the newest one, if the newest one is the first of another player and the frame before
// it was not looked at, although the player that drew it was. 0: there is none.
std::uint64_t Composer::Parts::missedLast() {
    const FrameInfo& before = look_.info;
    if (!showsLastPictures_ || before.number == 0)
        return 0;
    const std::uint64_t newest = store_.newestInfo().number;
    if (newest < before.number + 2)
        return 0;
    const std::vector<FrameInfo> infos = store_.infosSince(newest - 2);
    if (infos.size() < 2 || infos[0].pid != before.pid || infos[1].pid == before.pid)
        return 0;
    return gettimeusec() - infos[0].time < lastPictureUs ? infos[0].number : 0;
}

void Composer::Parts::lookAtFrame() {
    if (const std::uint64_t last = missedLast(); last != 0 && lookAt(last))
        return;
    for (int attempt = 0; attempt < lookAttempts; ++attempt) {
        look_.info = {};
        if (const std::uint64_t newest = store_.newestInfo().number; newest == 0 || lookAt(newest))
            return;
    }
}

// Notices when another source becomes visible.
void Composer::Parts::followSource() {
    const int source = look_.blanked ? -1 : look_.info.source;
    if (source != shown_.source)
        shown_ = {source, hasLooked_ ? look_.info.time : sourceSince(store_, look_.info)};
    hasLooked_ = true;
}

ScreenShape Composer::Parts::screenNow(std::int64_t now, const ScreenShape* monitor,
                                       const ScreenSettings& settings) {
    if (screen_)
        return *screen_;
    if (settings.size)
        return screenOf(*settings.size);
    if (monitor != nullptr)
        return *monitor;
    if (now >= monitorAgainAt_) {
        runningMonitor_ = screen::runningMonitor(appliance_);
        monitorAgainAt_ = now + monitorIntervalUs;
    }
    return runningMonitor_ ? screenOf(*runningMonitor_) : defaultScreen(look_.mode);
}

void Composer::Parts::updateOverlays(std::int64_t now, const ScreenText& texts,
                                     const ScreenSettings& settings) {
    const Size size = look_.screen.size;
    if (now >= noticeEnd_)
        notice_.clear();
    const LabelParts& parts = labelContent_.at(now, shown_, settings, appliance_);
    const bool textsChanged = texts_.update(texts, size);
    const bool labelChanged = label_.update(parts, size);
    const bool noticeChanged = noticeLabel_.update({notice_, "", "", ""}, size);
    if (!textsChanged && !labelChanged && !noticeChanged)
        return;
    overlays_ = texts_.images();
    for (const Label* label : {&label_, &noticeLabel_})
        if (label->image())
            overlays_.push_back(*label->image());
    look_.overlays = &overlays_;
    look_.overlayVersion = nextOverlayVersion();
}

const Look& Composer::Parts::look(const ScreenShape* monitor) {
    const std::int64_t now = gettimeusec();
    // Read the texts before the frame: a text that was set together with a blanking then never appears over the frame
    // before the blanking.
    const ScreenText texts = appliance_.texts();
    lookAtFrame();
    const std::int64_t blankedAt = std::max(appliance_.blankTime(), store_.blankedAt());
    look_.blanked = look_.info.number == 0 || look_.info.time <= blankedAt || faultOf(look_.shape) != nullptr;
    look_.frameAgeUs = look_.info.number == 0 ? 0 : std::max<std::int64_t>(now - look_.info.time, 0);
    look_.mode = store_.mode();
    const ScreenSettings& settings = settings_.at(now, appliance_);
    look_.screen = screenNow(now, monitor, settings);
    look_.placing = look_.blanked ? Placing{} : place(look_.shape, look_.screen, settings.fit);
    followSource();
    updateOverlays(now, texts, settings);
    return look_;
}

bool Composer::Parts::visitFrame(const std::function<void(const PictureView&)>& visit) {
    if (look_.blanked)
        return false;
    bool visited = false; // another player may have replaced the store
    const bool whole =
        store_.visit(look_.info.number, [&](const PictureView& picture, const FrameInfo& info) {
            visited = info == look_.info && picture.shape == look_.shape;
            if (visited)
                visit(picture);
        });
    return whole && visited;
}

const Picture& Composer::Parts::compose(const ScreenShape* monitor) {
    for (int attempt = 0; attempt < directAttempts; ++attempt) {
        look(monitor);
        if (look_.blanked) {
            painter_.paint(nullptr, look_, picture_);
            return picture_;
        }
        if (visitFrame([this](const PictureView& picture) { painter_.paint(&picture, look_, picture_); }))
            return picture_;
    }
    // This machine paints so slowly that the store's memory is drawn over meanwhile. Copying is faster.
    if (!look_.blanked && store_.newest(copy_)) {
        look_.info = copy_.info;
        look_.placing = copy_.shape == look_.shape
                            ? look_.placing
                            : place(copy_.shape, look_.screen, settings_.at(gettimeusec(), appliance_).fit);
        look_.shape = copy_.shape;
        const PictureView view = copy_.view();
        painter_.paint(&view, look_, picture_);
    }
    return picture_;
}

Composer::Composer() : Composer(FrameStore()) {}
Composer::Composer(FrameStore store) : parts_(std::make_unique<Parts>(std::move(store))) {}
Composer::Composer(Composer&&) noexcept = default;
Composer::~Composer() = default;

const Look& Composer::look(const ScreenShape* monitor) {
    return parts_->look(monitor);
}

bool Composer::visitFrame(const std::function<void(const PictureView&)>& visit) {
    return parts_->visitFrame(visit);
}

const Picture& Composer::compose(const ScreenShape* monitor) {
    return parts_->compose(monitor);
}

void Composer::useScreen(std::optional<ScreenShape> screen) {
    parts_->useScreen(screen);
}

void Composer::showLastPictures() {
    parts_->showLastPictures();
}

std::uint64_t Composer::wait(std::uint64_t seen, int timeoutMs) {
    return parts_->store().wait(seen, timeoutMs);
}

void Composer::notice(const std::string& text, int milliseconds) {
    parts_->notice(text, milliseconds);
}

void Composer::toggleName() {
    parts_->toggleName();
}

} // namespace screen

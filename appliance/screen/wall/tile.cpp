#include "appliance/screen/wall/tile.h"

#include "appliance/screen/wall/mark_images.h"
#include "appliance/screen/wall/stopped_mark.h"

#include <algorithm>
#include <utility>

namespace screen {
namespace {

// Reports that are taken at once; a process that sends without end must not hold up the wall.
constexpr int maxReports = 16;

constexpr const char* framesPath = "/run/decoder/screen/frames";

} // namespace

Tile::Tile(const std::string& root, const std::string& program)
    : store_(root + framesPath), process_(program, root) {
    report_.supervisor = true; // until its process tells
}

void Tile::tick(std::int64_t now) {
    if (process_.keepRunning(now) && look_.screen.size != Size{})
        order(TileSize{look_.screen.size}, now);
    for (int i = 0; i < maxReports && process_.socket() != -1; ++i) {
        TileReport report;
        const Received received = receiveReport(process_.socket(), report);
        if (received == Received::ended)
            process_.giveUp(now);
        if (received != Received::message)
            return;
        take(std::move(report));
    }
}

void Tile::order(const TileOrder& order, std::int64_t now) {
    // A process that has not read its last orders by now hangs.
    if (process_.socket() != -1 && !sendOrder(process_.socket(), order))
        process_.giveUp(now);
}

// The versions of a report are those of the tile process. An image that was there before keeps its version here.
void Tile::take(TileReport&& report) {
    for (OverlayImage& image : report.overlays) {
        const auto same = std::ranges::find_if(report_.overlays, [&](const OverlayImage& old) {
            return old.at == image.at && old.pixels == image.pixels;
        });
        image.version = same == report_.overlays.end() ? nextOverlayVersion() : same->version;
    }
    const bool changed = !reported_ || report.screen != report_.screen ||
                         !std::ranges::equal(report.overlays, report_.overlays, {}, &OverlayImage::version,
                                             &OverlayImage::version);
    reported_ = true;
    report_ = std::move(report);
    if (changed)
        updateOverlays();
}

void Tile::setSize(Size size, std::int64_t now) {
    if (size == look_.screen.size)
        return;
    look_.screen = screenOf(size);
    order(TileSize{size}, now);
    marked_.clear();
    marks_.clear();
    updateOverlays();
}

const Look& Tile::look(Size size, std::int64_t now) {
    setSize(size, now);
    look_.info = {};
    store_.visitNewest([this](const PictureView& picture, const FrameInfo& info) {
        look_.info = info;
        look_.shape = picture.shape;
    });
    const std::int64_t blankedAt = std::max(report_.blankedAt, store_.blankedAt());
    look_.mode = store_.mode();
    look_.blanked = look_.info.number == 0 || look_.info.time <= blankedAt;
    look_.frameAgeUs = look_.info.number == 0 ? 0 : std::max<std::int64_t>(now - look_.info.time, 0);
    look_.placing = look_.blanked ? Placing{} : place(look_.shape, look_.screen, report_.fit);
    mark(stoppedMark(
        {.supervisor = report_.supervisor, .visible = !look_.blanked, .ageUs = look_.frameAgeUs}));
    return look_;
}

void Tile::mark(const std::string& text) {
    if (text == marked_)
        return;
    marked_ = text;
    marks_ = text.empty() ? std::vector<OverlayImage>{} : markImages(text, look_.screen.size);
    updateOverlays();
}

void Tile::updateOverlays() {
    overlays_.clear();
    // The texts for another size come in a moment again.
    if (report_.screen == look_.screen.size)
        overlays_ = report_.overlays;
    overlays_.insert(overlays_.end(), marks_.begin(), marks_.end());
    look_.overlays = &overlays_;
    look_.overlayVersion = nextOverlayVersion();
}

bool Tile::visitFrame(const std::function<void(const PictureView&)>& visit) {
    if (look_.blanked)
        return false;
    bool visited = false;
    const bool whole = store_.visitNewest([&](const PictureView& picture, const FrameInfo& info) {
        visited = picture.shape == look_.shape;
        if (!visited)
            return;
        look_.info = info;
        visit(picture);
    });
    return whole && visited;
}

bool Tile::hasNewFrame() {
    return store_.newestInfo().number != look_.info.number;
}

void Tile::key(const Key& key, bool down) {
    if (process_.socket() != -1)
        sendOrder(process_.socket(), TileKey{key, down});
}

} // namespace screen

#include "appliance/screen/wall/wall_content.h"

#include <libcommon/clock.h>

#include <algorithm>
#include <filesystem>
#include <poll.h>
#include <utility>

namespace screen {
namespace {

// There is no wait for several stores at once, so they are looked at in this interval. It is a quarter of the time
// between two refreshes of a display.
constexpr int lookMs = 4;

// In the build tree, the folder is in the same place relative to the programs as when installed.
std::string tileProgram() {
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    return (self.parent_path() / TILE_PROGRAM).lexically_normal();
}

WallLayout withTiles(WallLayout layout, std::size_t count) {
    layout.tiles.resize(std::min(layout.tiles.size(), count));
    return layout;
}

} // namespace

WallContent::WallContent(WallLayout layout, const std::vector<std::string>& roots)
    : view_(withTiles(std::move(layout), roots.size())) {
    const std::string program = tileProgram();
    for (std::size_t i = 0; i < view_.tiles(); ++i)
        tiles_.push_back(std::make_unique<Tile>(roots[i], program));
}

const std::vector<Part>& WallContent::parts(Size window) {
    const std::int64_t now = gettimeusec();
    window_ = window;
    viewChanged_ = false;
    shown_.clear();
    parts_.clear();
    for (const ShownTile& shown : view_.shown(window)) {
        Tile& tile = *tiles_[shown.tile];
        tile.tick(now);
        const Look& look = tile.look({shown.at.width, shown.at.height}, now);
        shown_.push_back(shown.tile);
        parts_.push_back({&look, shown.at, [&tile](const auto& visit) { return tile.visitFrame(visit); }});
    }
    return parts_;
}

bool WallContent::hasNewFrame() {
    return std::ranges::any_of(shown_, [this](std::size_t tile) { return tiles_[tile]->hasNewFrame(); });
}

// True when one is there; the next parts() takes it.
bool WallContent::waitForReport(int timeoutMs) {
    std::vector<pollfd> sockets;
    for (const std::size_t tile : shown_)
        if (tiles_[tile]->socket() != -1)
            sockets.push_back({tiles_[tile]->socket(), POLLIN, 0});
    return poll(sockets.data(), sockets.size(), timeoutMs) > 0;
}

bool WallContent::wait(int timeoutMs) {
    const std::int64_t end = gettimeusec() + timeoutMs * std::int64_t{1000};
    while (true) {
        if (viewChanged_ || hasNewFrame())
            return true;
        const std::int64_t left = (end - gettimeusec()) / 1000;
        if (left <= 0)
            return false;
        if (waitForReport(static_cast<int>(std::min<std::int64_t>(left, lookMs))))
            return true;
    }
}

void WallContent::keyDown(const Key& key) {
    viewChanged_ = true;
    if (key.kind == KeyKind::back)
        return view_.back();
    if (!view_.enlarged())
        return keyInAll(key, gettimeusec());
    keyTile_ = tiles_[*view_.enlarged()].get();
    keyTile_->key(key, true);
}

void WallContent::keyInAll(const Key& key, std::int64_t now) {
    if (key.kind == KeyKind::digit)
        return view_.digit(key.digit, now);
    if (key.kind != KeyKind::name && key.kind != KeyKind::mute)
        return;
    for (const auto& tile : tiles_)
        tile->key(key, true);
}

// The tile whose key went down, also when all tiles are shown again meanwhile.
void WallContent::keyUp(const Key& key) {
    if (keyTile_ != nullptr)
        keyTile_->key(key, false);
}

void WallContent::click(int x, int y) {
    viewChanged_ = true;
    view_.click(window_, x, y);
}

void WallContent::tick() {
    const std::int64_t now = gettimeusec();
    const auto before = view_.enlarged();
    view_.tick(now);
    viewChanged_ = viewChanged_ || view_.enlarged() != before;
    for (const auto& tile : tiles_)
        tile->tick(now);
}

} // namespace screen

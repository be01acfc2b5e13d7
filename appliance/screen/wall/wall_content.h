// What the monitor shows of a wall, and what keys and clicks do there.
#pragma once

#include "appliance/screen/monitor/content.h"
#include "appliance/screen/wall/tile.h"
#include "appliance/screen/wall/wall_view.h"

#include <memory>
#include <string>
#include <vector>

namespace screen {

// In the view of all tiles, digits and clicks enlarge a tile, and the keys of name and mute act on all decoders. The
// keys of an enlarged tile act on its decoder, as on a monitor of its own; KeyKind::back and a click show all tiles.
class WallContent : public Content {
public:
    // Tile N shows the appliance below roots[N]. There are at most as many roots as tiles; tiles without one are black.
    WallContent(WallLayout layout, const std::vector<std::string>& roots);

    const std::vector<Part>& parts(Size window) override;
    bool wait(int timeoutMs) override;
    void keyDown(const Key& key) override;
    void keyUp(const Key& key) override;
    void click(int x, int y) override;
    void tick() override;

private:
    bool hasNewFrame();
    bool waitForReport(int timeoutMs);
    void keyInAll(const Key& key, std::int64_t now);

    WallView view_;
    std::vector<std::unique_ptr<Tile>> tiles_;
    std::vector<std::size_t> shown_; // the tiles of the last parts()
    std::vector<Part> parts_;
    Size window_;
    bool viewChanged_ = false; // since the last parts()
    Tile* keyTile_ = nullptr;  // whose key is down
};

} // namespace screen

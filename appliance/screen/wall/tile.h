// One tile of the wall: the frames of an appliance's store, and what its tile process tells.
#pragma once

#include "appliance/screen/frame_store.h"
#include "appliance/screen/look.h"
#include "appliance/screen/monitor/content.h"
#include "appliance/screen/wall/tile_messages.h"
#include "appliance/screen/wall/tile_process.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace screen {

// For one thread at a time. `now` is always a time on gettimeusec()'s clock.
class Tile {
public:
    // `root` is the appliance root, `program` decoder-tile.
    Tile(const std::string& root, const std::string& program);

    // Keeps the tile process running and takes its reports. Call it some times a second, and when socket() is readable.
    void tick(std::int64_t now);

    // What the tile shows on a screen of that size. Valid until the next call of look() or tick().
    const Look& look(Size size, std::int64_t now);

    // Like Composer::visitFrame(), but also with a newer frame of the same shape, which the look is of from then on. In a
    // large wall there is often a newer one by the time that the last tile is drawn.
    bool visitFrame(const std::function<void(const PictureView&)>& visit);

    // The store has a newer frame than look() is of.
    bool hasNewFrame();

    void key(const Key& key, bool down);

    int socket() const { return process_.socket(); } // -1: none
    pid_t pid() const { return process_.pid(); }     // of the tile process; -1: none

private:
    void order(const TileOrder& order, std::int64_t now);
    void take(TileReport&& report);
    void setSize(Size size, std::int64_t now);
    void mark(const std::string& text);
    void updateOverlays();

    FrameStore store_;
    TileProcess process_;
    TileReport report_;
    bool reported_ = false; // `report_` is from a tile process
    std::string marked_;    // the text of `marks_`
    std::vector<OverlayImage> marks_;
    std::vector<OverlayImage> overlays_;
    Look look_;
};

} // namespace screen

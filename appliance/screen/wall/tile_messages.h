// What a wall and its tile processes tell each other.
//
// The wall shows the frames of each appliance from its store. But texts, parameters, status values and events belong to
// one appliance for the life of a process. So each tile has a small process with that appliance root: it renders the
// texts and the label for the tile's size and carries out the keys. Wall and tile process are connected by a pair of
// sockets (SOCK_SEQPACKET): each message is one packet, whole or not there. The pixels of a report are in a file in
// memory that comes with it. One thread for each socket.
#pragma once

#include "appliance/screen/layout.h"
#include "appliance/screen/monitor/content.h"
#include "appliance/screen/overlay.h"

#include <cstdint>
#include <variant>
#include <vector>

namespace screen {

inline constexpr std::size_t maxTileOverlays = 32;

// From the wall: how large the screen is now.
struct TileSize {
    Size size; // pixels, each 1 to 16384

    bool operator==(const TileSize&) const = default;
};

// From the wall: an operator's key.
struct TileKey {
    Key key;
    bool down = true; // or up
};

using TileOrder = std::variant<TileSize, TileKey>;

// From the tile process: what its appliance shows besides the frame.
struct TileReport {
    bool supervisor = false;    // one runs
    std::int64_t blankedAt = 0; // of the last osdBlank(), on gettimeusec()'s clock; 0: never
    Fit fit = Fit::bars;
    Size screen;                        // for which the overlays are
    std::vector<OverlayImage> overlays; // at most maxTileOverlays
};

enum class Received {
    message,
    nothing, // now
    ended,   // the other side has ended, or sent something broken
};

// Send without waiting. False with errno; EAGAIN: the other side has not read the earlier messages.
bool sendOrder(int socket, const TileOrder& order);
bool sendReport(int socket, const TileReport& report);

// Receive without waiting. `order` and `report` change only with Received::message.
Received receiveOrder(int socket, TileOrder& order);
Received receiveReport(int socket, TileReport& report);

} // namespace screen

// The players whose switches are compared, each on a screen of its own.
//
// A side shows one of two sources and is asked for the other one. Ours is asked as an operator does it; a program of
// another project is either told to go on to the other address, or started a second time beside the first, which is
// ended when the new window shows its picture ("overlapping").
#pragma once

#include "tests/appliance/process.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace bench {

class Side {
public:
    virtual ~Side() = default;
    // Asks for a source. Returns at once.
    virtual void show(int source) = 0;
    // The source asked for shows now.
    virtual void shown() {}
    // Shows nothing any more and uses no processor time.
    virtual void end() = 0;
};

// What a player of another project is to show, and where.
struct Playing {
    std::string kind;
    std::string codec;              // of RTSP
    std::vector<std::string> hosts; // of the encoders, by source
    int width = 0;                  // of pictures and screen
    int height = 0;
    std::string display;
    std::string folder; // for logs and sockets
};

// The names of all such sides: "mpv", "mpv-told", "gst-launch", "vlc", "vlc-told".
const std::vector<std::string>& peerNames();

// Why the side can't be measured here; "": it can.
std::string whyNoPeer(const std::string& name, const Playing& playing);

std::unique_ptr<Side> makePeer(const std::string& name, const Playing& playing);

} // namespace bench

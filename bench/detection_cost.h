// Measuring what it costs to detect an encoder: the real detection and the real library, against a
// video-encoder that is as far away as told.
//
// Everything happens in a network of the process's own, where the encoder has the ports that a detection
// expects, 80, 554 and 443.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace bench {

// One way in which an encoder delivers its pictures.
struct StreamKind {
    std::string name;
    int type;                         // as which it has to be detected
    std::vector<std::string> encoder; // options of video-encoder
    std::string user;                 // "" none; the password is the user's name
    std::vector<std::string> ffprobe; // options and URL; none: ffprobe has nothing to read
    bool https = false;               // asked at the HTTPS port
};

const std::vector<StreamKind>& streamKinds();

// How far away the encoder is.
enum class Way {
    Direct,
    Counted, // next door, through a relay that counts
    Delayed, // in another town
};

// Makes the network, and an appliance for the library, of this process; before it has a second thread. ""
// when that worked, else why not.
std::string enterBench();

// The kernel can delay a network by itself; else relays do, and packets of streams come at once.
bool kernelDelays();

struct Cost {
    int type = 0;         // as what it was detected; 0 not at all
    double total = 0;     // milliseconds
    double mediaWait = 0; // of them, for the packets of a stream
    int connections = 0;  // Way::Counted only
    int exchanges = 0;    // likewise
    int refused = 0;      // likewise: connections
    double ffprobe = -1;  // milliseconds; -1 not run
    std::string trace;

    double requests() const { return total - mediaWait; }
    // Behind relays a refusal comes at once: the port is closed here as it is there.
    int roundTrips() const { return connections + exchanges + (kernelDelays() ? refused : 0); }
};

// One detection by a fresh connection of a fresh encoder, and ffprobe on the same stream after it.
// `timeout` in seconds.
Cost detectOnce(const StreamKind& kind, Way way, std::chrono::milliseconds eachWay, int timeout,
                bool withFfprobe);

} // namespace bench

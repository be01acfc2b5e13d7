// Measures the cost of a detection: the real detection and the real library, against a video-encoder
// at a given distance.
//
// The process has its own network namespace, so that the encoder has the ports that a detection expects:
// 80, 554 and 443.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace bench {

// One way in which an encoder delivers video.
struct StreamKind {
    std::string name;
    int type;                         // the type that the detection has to find
    std::vector<std::string> encoder; // options of video-encoder
    std::string user;                 // "": none; the password is the user's name
    std::vector<std::string> ffprobe; // options and URL; empty: ffprobe cannot read it
    bool https = false;               // at the HTTPS port
    // What the decoder tries before, in the order of its automatic detection, as options and URLs for ffprobe.
    std::vector<std::vector<std::string>> before{};
};

const std::vector<StreamKind>& streamKinds();

// How far away the encoder is.
enum class Way {
    Direct,
    Counted, // without a delay, through a relay that counts
    Delayed, // with a delay in each direction
};

// Makes the network namespace and an appliance root for this process. Call it while the process has one thread.
// Returns "", or the reason of a failure.
std::string enterBench();

// The kernel delays the network. Otherwise relays do, and packets of streams arrive without a delay.
bool kernelDelays();

struct Cost {
    int type = 0;         // the detected type; 0: not detected
    double total = 0;     // milliseconds
    double mediaWait = 0; // the part of it spent on waiting for a stream's packets
    int connections = 0;  // Way::Counted only
    int exchanges = 0;    // likewise
    int refused = 0;      // likewise, connections
    struct Peer {
        double told = -1; // milliseconds, when it gets the stream's URL; -1: it did not run, or found nothing
        double asking =
            -1; // with curl, for the same as a detection: the parameters, and one stream after the other
    };
    Peer ffprobe;
    Peer discoverer; // gst-discoverer-1.0
    std::string trace;

    double requests() const { return total - mediaWait; }
    // With relays a refusal comes without a delay.
    int roundTrips() const { return connections + exchanges + (kernelDelays() ? refused : 0); }
};

// One detection of a fresh encoder over a fresh connection, then the peers on the same stream. `timeout` in seconds.
Cost detectOnce(const StreamKind& kind, Way way, std::chrono::milliseconds eachWay, int timeout,
                bool withPeers);

} // namespace bench

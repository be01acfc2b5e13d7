// Clients of a stream for benchmarks: ours, which note when pictures arrive, and ffmpeg, which copies.
#pragma once

#include "appliance/streams/rtsp_stream.h"
#include "bench/distribution.h"
#include "bench/looping_camera.h"

#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace bench {

using ArrivalTime = std::chrono::steady_clock::time_point;

// When the last packet of each picture arrived, by its RTP timestamp, which nobody on the way changes. Any thread.
class Arrivals {
public:
    void add(std::string_view packet);
    std::map<std::string, ArrivalTime> times() const;

private:
    mutable std::mutex lock_;
    std::map<std::string, ArrivalTime> times_;
};

// Milliseconds that the pictures of `later` came after the same ones of `first`, of those that came there after `since`.
Distribution delaysBetween(const Arrivals& first, const Arrivals& later, ArrivalTime since);

// Reads a stream of 127.0.0.1 over RTSP and its connection, on a thread of its own, until it is destroyed.
class StreamReader {
public:
    // `arrivals`: may be null; must outlive the reader.
    StreamReader(int port, const std::string& path, Arrivals* arrivals);
    ~StreamReader();
    StreamReader(const StreamReader&) = delete;
    StreamReader& operator=(const StreamReader&) = delete;
    long packets() const { return packets_; }

private:
    streams::RtspStream* stream_;
    std::thread thread_;
    std::atomic<long> packets_ = 0;
};

void settle(double seconds);

// Seconds of processor time that `ffmpeg -c copy` uses for one stream and one second, when so many of them read the camera
// at once. `to`: format and target. Logs to a file in `root`.
double costOfCopies(int streams, double seconds, const LoopingCamera& camera,
                    const std::vector<std::string>& to, const std::string& root);

} // namespace bench

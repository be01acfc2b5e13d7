// Follows the parameters and the status store, and says which streams are to be kept.
//
// Several times a second it looks whether the parameter file, the decoder's own status or a source's status values have
// changed, on a thread of its own: the streams never wait for a file.
#pragma once

#include "appliance/gateway/loop/event_loop.h"
#include "appliance/gateway/warm/warm_plan.h"

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace gateway {

struct WarmPlan {
    WarmSettings settings;
    std::vector<WarmTarget> targets;
    // The numbers of the gateway's cameras among the sources, by the address that their players ask for.
    std::map<std::string, int> cameras;
    bool operator==(const WarmPlan&) const = default;
};

class WarmWatch {
public:
    // `take` gets each new plan on the loop's thread. The loop must outlive the watch.
    WarmWatch(EventLoop& loop, std::function<void(const WarmPlan&)> take);
    ~WarmWatch();
    WarmWatch(const WarmWatch&) = delete;
    WarmWatch& operator=(const WarmWatch&) = delete;

    void start();

private:
    void run();
    bool filesChanged();
    void readSources();
    void readMoment(std::int64_t now);
    WarmPlan plan() const;

    EventLoop& loop_;
    const std::function<void(const WarmPlan&)> take_;
    std::thread thread_;

    // Of the thread.
    std::map<std::string, std::string> stamps_; // of the files, by their paths
    std::vector<WarmCandidate> sources_;
    WarmSettings settings_;
    WarmMoment moment_;
    std::int64_t currentSince_ = 0;
    WarmPlan last_;
    bool told_ = false;

    std::mutex lock_;
    std::condition_variable changed_;
    bool ending_ = false; // guarded by lock_
};

} // namespace gateway

// The keeper: holds chosen sources' packets since their last key picture, and gives them to the players that start.
//
// Which ones is in warm_plan.h. Players and other programs of this user connect to its socket under the run folder; what
// they say to each other is in appliance/streams/kept_protocol.h. For the loop's thread.
#pragma once

#include "appliance/gateway/cameras/cameras.h"
#include "appliance/gateway/warm/warm_connection.h"
#include "appliance/gateway/warm/warm_stream.h"
#include "appliance/gateway/warm/warm_watch.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace gateway {

class WarmSources {
public:
    static constexpr std::size_t mostConnections = 256;

    // Loop and cameras must outlive it.
    WarmSources(EventLoop& loop, Cameras& cameras);
    ~WarmSources(); // waits a moment for the ends of the sessions
    WarmSources(const WarmSources&) = delete;
    WarmSources& operator=(const WarmSources&) = delete;

    // Listens and begins to keep. Without a socket, with a log line, nothing is kept, and it is tried again.
    void start();

private:
    struct Kept {
        WarmTarget target;
        std::unique_ptr<WarmStream> stream;
        std::int64_t unwantedSince = 0; // 0: it is wanted
    };

    bool listen();
    void accept();
    void configure(const WarmPlan& plan);
    void keep(const WarmTarget& target);
    std::unique_ptr<StreamFeed> feedOf(const DetectedStream& stream, FeedEvents events);
    void look();
    void drop(std::map<std::string, Kept>::iterator one);
    std::string status() const;

    EventLoop& loop_;
    Cameras& cameras_;
    const std::string path_;
    int fd_ = -1;
    bool refused_ = false; // the socket could not be opened; logged once
    std::shared_ptr<KeptBudget> budget_ = std::make_shared<KeptBudget>();
    std::map<std::string, int> cameraNumbers_; // by address
    std::map<std::string, Kept> kept_;         // by address
    std::map<std::uint64_t, std::unique_ptr<WarmConnection>> connections_;
    std::uint64_t next_ = 1;
    EventLoop::Timer timer_ = 0;
    std::unique_ptr<WarmWatch> watch_; // destroyed first: it uses the loop
};

} // namespace gateway

// The packets of a camera of the gateway: it is received once, for players that connect to the gateway's port as well as
// for those that take the stream from the keeper.
#pragma once

#include "appliance/gateway/cameras/cameras.h"
#include "appliance/gateway/serving/watched_camera.h"
#include "appliance/gateway/warm/packet_marks.h"
#include "appliance/gateway/warm/stream_feed.h"

#include <memory>

namespace gateway {

class CameraFeed : public StreamFeed {
public:
    // Loop and cameras must outlive it. Nothing happens before the loop's next turn.
    CameraFeed(EventLoop& loop, Cameras& cameras, int number, FeedEvents events);

    bool isReplaced() const override { return watched_.isWatching() && watched_.isReplaced(); }

private:
    void ask();
    void answered(const StreamInfo& info, const Failure& failure);
    Viewer viewer();

    Cameras& cameras_;
    const int number_;
    const FeedEvents events_;
    std::unique_ptr<PacketMarks> marks_;
    std::uint64_t pictures_ = 0;
    bool joining_ = false; // what comes during the call was held by the camera
    WatchedCamera watched_;
    const std::shared_ptr<bool> alive_ = std::make_shared<bool>(true); // looked at by calls that come later
    EventLoop& loop_;
};

} // namespace gateway

// Receives a stream from a configured encoder with the players' own protocol code, which waits for answers and packets:
// on a thread of its own. Each session's requests stay the straight sequence that they are in a player, and an encoder
// that does not answer holds nobody up. The thread finds pictures and key pictures; the loop's thread keeps them.
#pragma once

#include "appliance/gateway/loop/event_loop.h"
#include "appliance/gateway/warm/detected_stream.h"
#include "appliance/gateway/warm/stream_feed.h"

#include <chrono>
#include <memory>

namespace gateway {

class EncoderFeed : public StreamFeed {
public:
    // Connects at once. The loop must outlive the feed.
    EncoderFeed(EventLoop& loop, const DetectedStream& stream, FeedEvents events);
    ~EncoderFeed() override;

    // Waits until the sessions of all feeds that have ended are closed, at most that long. For the end of the process.
    static void awaitEnds(std::chrono::milliseconds limit);

private:
    class Reception;
    const std::shared_ptr<Reception> reception_; // its thread has it too
};

} // namespace gateway

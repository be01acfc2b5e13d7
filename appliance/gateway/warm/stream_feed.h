// Where the packets of a kept stream come from: an encoder, or a camera that the gateway is connected with anyway.
#pragma once

#include "appliance/gateway/warm/kept_group.h"
#include "appliance/streams/kept_protocol.h"

#include <functional>
#include <string>

namespace gateway {

// All are called on the loop's thread, and none after the feed's end. They must not destroy the feed.
struct FeedEvents {
    std::function<void(const streams::KeptDescription& description)> opened; // before the first item
    // `held`: the item was held before, and does not show that the stream moves.
    std::function<void(const KeptItem& item, bool held)> item;
    std::function<void()> pause;                          // all that has arrived was handed over
    std::function<void(const std::string& reason)> ended; // once; nothing more comes
};

class StreamFeed {
public:
    StreamFeed() = default;
    StreamFeed(const StreamFeed&) = delete;
    StreamFeed& operator=(const StreamFeed&) = delete;
    virtual ~StreamFeed() = default; // ends the feed without waiting

    // A feed that begins now would be another stream than this one.
    virtual bool isReplaced() const { return false; }
};

} // namespace gateway

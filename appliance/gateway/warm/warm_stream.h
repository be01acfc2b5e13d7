// One stream that is kept: received as long as it is wanted or a player takes it, connected again when it fails.
//
// A failed connection is repeated after 1, 2, 4, ... 30 seconds. The stream is given to players only while it moves. For
// the loop's thread.
#pragma once

#include "appliance/gateway/loop/event_loop.h"
#include "appliance/gateway/warm/kept_group.h"
#include "appliance/gateway/warm/stream_feed.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace gateway {

// One who takes a stream. All are called on the loop's thread; none may destroy the stream.
struct WarmTaker {
    std::function<void(const streams::KeptDescription& description)> description;
    std::function<void(const KeptItem& item, bool start)> item; // `start`: a decoder can begin with it
    std::function<void()> live;
    std::function<void()> flush;                          // all that has come was handed over
    std::function<void(const std::string& reason)> ended; // the taker has left
};

struct WarmReport {
    bool kept = false; // there is a picture that a player would get at once
    bool moves = false;
    std::string reason;         // why it is not kept
    std::int64_t keyAgeMs = -1; // since the last key picture; -1: none
    std::int64_t bitRate = 0;   // bits in a second, of the last seconds
    std::size_t bytes = 0;      // that are kept
    std::size_t takers = 0;
};

class WarmStream {
public:
    // Without anything for so long, a stream counts as standing still and is not given to players.
    static constexpr std::int64_t longestPauseUs = 1'500'000;
    // After so long it is connected with anew.
    static constexpr std::int64_t longestSilenceUs = 5'000'000;

    using MakeFeed = std::function<std::unique_ptr<StreamFeed>(FeedEvents events)>;
    // `name` is for the log. Connects with the loop's next turn.
    WarmStream(EventLoop& loop, std::string name, std::shared_ptr<KeptBudget> budget, MakeFeed makeFeed);
    ~WarmStream();
    WarmStream(const WarmStream&) = delete;
    WarmStream& operator=(const WarmStream&) = delete;

    // Whether it is kept without a player. Unwanted, it stays as long as a player takes it.
    void want(bool wanted) { wanted_ = wanted; }
    bool isWanted() const { return wanted_; }
    bool isNeeded() const { return wanted_ || !takers_.empty(); }

    // Gives the taker the description, what is kept, and from now on what comes. Returns 0 when the stream can't be given
    // now: it is not connected, has no key picture, or nothing comes any more.
    using TakerId = std::uint64_t;
    TakerId join(WarmTaker taker);
    void leave(TakerId taker);

    WarmReport report() const;
    // Called once a second.
    void look();

private:
    void open();
    void close();
    void onOpened(const streams::KeptDescription& description);
    void onItem(const KeptItem& item, bool held);
    void onEnded(const std::string& reason);
    bool moves() const;
    void endTakers(const std::string& reason);
    void pause();

    EventLoop& loop_;
    const std::string name_;
    const std::shared_ptr<KeptBudget> budget_;
    const MakeFeed makeFeed_;
    bool wanted_ = true;

    std::unique_ptr<StreamFeed> feed_; // null: not connected
    std::optional<streams::KeptDescription> description_;
    std::unique_ptr<KeptGroup> group_; // null: not open
    EventLoop::Timer againTimer_ = 0;
    int failures_ = 0;   // in a row
    std::string reason_; // of the last failure; "": none
    std::int64_t opened_ = 0;
    std::int64_t lastItem_ = 0; // when a part of a picture came, on gettimeusec()'s clock
    std::int64_t lastKey_ = 0;
    std::uint64_t bytes_ = 0; // since the last look
    std::int64_t lastLook_ = 0;
    double bitRate_ = 0;

    std::map<TakerId, std::shared_ptr<WarmTaker>> takers_;
    TakerId nextTaker_ = 1;
};

} // namespace gateway

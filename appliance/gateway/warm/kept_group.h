// A group of pictures: what has come of a stream since its last key picture, undecoded, so that a player that joins can
// decode the newest picture at once.
#pragma once

#include "appliance/streams/kept_protocol.h"
#include "appliance/streams/rtp/kept_packets.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>

namespace gateway {

// A packet, a piece of a byte stream, or a whole picture.
struct KeptItem {
    streams::KeptFrame kind = streams::KeptFrame::video;
    streams::Packet bytes;
    std::uint64_t unit = 0;  // items with equal numbers belong together, as the packets of one picture do
    bool newPicture = false; // the first item of a picture that is newer than all before it
    bool key = false;        // the unit is known to begin a key picture from here on
    streams::Packet before;  // with `key`: what a decoder has to get before it; null: nothing
};

// The memory that all groups share.
struct KeptBudget {
    std::size_t limit = 0; // bytes
    std::size_t used = 0;
};

// For one thread.
class KeptGroup {
public:
    // `shownLate`: how many pictures after one its decoder returns it; so many more come as live.
    KeptGroup(std::shared_ptr<KeptBudget> budget, std::size_t shownLate);
    ~KeptGroup();
    KeptGroup(const KeptGroup&) = delete;
    KeptGroup& operator=(const KeptGroup&) = delete;

    // Adds an item; one with `key` replaces everything before its unit. A group that the budget has no room for is not
    // kept at all, because its end is useless without its start.
    void add(const KeptItem& item);
    void clear();

    // In the order of their arrival, beginning with a key picture; empty before the first one.
    const std::deque<KeptItem>& items() const { return items_; }
    // The index of the first item that comes as live.
    std::size_t live() const;
    std::size_t bytes() const { return bytes_; }
    bool overran() const { return overran_; } // the last group was too long for the budget

private:
    void begin(const KeptItem& item);
    void append(const KeptItem& item);
    void wait(const KeptItem& item);
    bool takeRoom(std::size_t bytes);

    const std::shared_ptr<KeptBudget> budget_;
    const std::size_t shownLate_;
    std::deque<KeptItem> items_;
    std::deque<KeptItem> waiting_;     // of one unit, while items_ is empty
    std::deque<std::size_t> pictures_; // the indices of the newest pictures' first items, oldest first
    std::size_t bytes_ = 0;
    bool overran_ = false;
};

} // namespace gateway

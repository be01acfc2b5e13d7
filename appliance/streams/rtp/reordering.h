// Puts packets that arrived over UDP into the order of their sequence numbers.
//
// A packet in order goes on at once. After a gap, packets wait until the missing one comes, until too many wait, or until
// they have waited too long; then the gap is given up. Packets that come twice or too late are dropped. For one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace streams {

class Reordering {
public:
    static constexpr std::size_t mostWaiting = 256;
    static constexpr std::int64_t longestWaitUs = 50'000;

    using Take = std::function<void(std::string_view packet)>;
    explicit Reordering(Take take);

    // `now` in microseconds. Bytes that are not RTP are dropped.
    void add(std::string_view packet, std::int64_t now);
    // Gives up a gap that has lasted too long.
    void look(std::int64_t now);

    bool waits() const { return !waiting_.empty(); } // for a missing packet
    std::uint64_t lost() const { return lost_; }     // packets that never came in time

private:
    void release();
    void giveUp();

    Take take_;
    bool begun_ = false;
    std::int64_t expected_ = 0;                   // the next packet, counted without wrapping
    std::int64_t waitsSince_ = 0;                 // when the gap was found
    std::map<std::int64_t, std::string> waiting_; // by unwrapped sequence number
    std::uint64_t lost_ = 0;
};

} // namespace streams

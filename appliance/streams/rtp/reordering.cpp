#include "appliance/streams/rtp/reordering.h"

#include "appliance/streams/rtp/rtp_packet.h"

#include <utility>

namespace streams {
namespace {

// A jump further than this is a sender that began anew, not a loss.
constexpr int longestJump = 2048;

} // namespace

Reordering::Reordering(Take take) : take_(std::move(take)) {}

void Reordering::add(std::string_view packet, std::int64_t now) {
    const auto header = readRtp(packet);
    if (!header)
        return;
    // The nearest number to the expected one that has these lowest 16 bits.
    const auto ahead = static_cast<std::int16_t>(header->sequence - static_cast<std::uint16_t>(expected_));
    if (!begun_ || ahead > longestJump || ahead < -longestJump) {
        while (!waiting_.empty())
            giveUp();
        begun_ = true;
        expected_ = header->sequence;
    } else if (ahead != 0) {
        if (ahead < 0 || waiting_.contains(expected_ + ahead))
            return;
        if (waiting_.empty())
            waitsSince_ = now;
        waiting_.emplace(expected_ + ahead, packet);
        if (waiting_.size() > mostWaiting)
            giveUp();
        return look(now);
    }
    ++expected_;
    take_(packet);
    release();
}

void Reordering::look(std::int64_t now) {
    while (!waiting_.empty() && now - waitsSince_ > longestWaitUs) {
        giveUp();
        waitsSince_ = now;
    }
}

// The packets that are now in order.
void Reordering::release() {
    while (!waiting_.empty() && waiting_.begin()->first == expected_) {
        const std::string packet = std::move(waiting_.begin()->second);
        waiting_.erase(waiting_.begin());
        ++expected_;
        take_(packet);
    }
}

void Reordering::giveUp() {
    lost_ += static_cast<std::uint64_t>(waiting_.begin()->first - expected_);
    expected_ = waiting_.begin()->first;
    release();
}

} // namespace streams

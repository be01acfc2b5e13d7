#include "appliance/players/sound/sound_flow.h"

#include <algorithm>
#include <cmath>

namespace player {
namespace {

constexpr std::size_t rampFrames = soundRate / 50;
constexpr double rampStep = 1.0 / rampFrames;
constexpr std::size_t mostReserve = 2 * soundRate / 3;
constexpr std::size_t surplus = soundRate / 2; // beyond the reserve
constexpr std::size_t mostFrames = 3 * soundRate;

std::int16_t scaled(std::int16_t sample, double gain) {
    return static_cast<std::int16_t>(std::lround(sample * gain));
}

} // namespace

void SoundFlow::put(const SoundFrame* frames, std::size_t count) {
    const std::lock_guard guard(lock_);
    // Without a device that takes them, the samples must not collect. Dropping the newest keeps the rest continuous.
    const std::size_t room = mostFrames - std::min(mostFrames, frames_.size());
    frames_.insert(frames_.end(), frames, frames + std::min(count, room));
}

void SoundFlow::setGain(double gain) {
    const std::lock_guard guard(lock_);
    target_ = std::clamp(gain, 0.0, 1.0);
}

bool SoundFlow::silent() const {
    const std::lock_guard guard(lock_);
    return target_ == 0 && gain_ == 0;
}

void SoundFlow::clear() {
    const std::lock_guard guard(lock_);
    frames_.clear();
    gain_ = 0;
    playing_ = false;
    skipping_ = false;
}

double SoundFlow::wantedGain() const {
    return playing_ && !skipping_ ? target_ : 0;
}

void SoundFlow::decide() {
    if (!playing_ && gain_ == 0 && frames_.size() >= reserve_)
        playing_ = true;
    if (playing_ && frames_.size() <= rampFrames) {
        playing_ = false;
        reserve_ = std::min(2 * reserve_, mostReserve);
    }
    skipping_ = skipping_ || frames_.size() > reserve_ + surplus;
    if (skipping_ && gain_ == 0) {
        if (frames_.size() > reserve_)
            frames_.erase(frames_.begin(), frames_.end() - static_cast<std::ptrdiff_t>(reserve_));
        skipping_ = false;
    }
}

SoundFrame SoundFlow::take() {
    decide();
    const double wanted = wantedGain();
    gain_ = gain_ < wanted ? std::min(wanted, gain_ + rampStep) : std::max(wanted, gain_ - rampStep);
    // A muted stream goes on, so that the sound is up to date when it is heard again.
    if (frames_.empty() || (!playing_ && gain_ == 0))
        return {};
    const SoundFrame frame = frames_.front();
    frames_.pop_front();
    return {scaled(frame.left, gain_), scaled(frame.right, gain_)};
}

void SoundFlow::next(SoundFrame* out, std::size_t count) {
    const std::lock_guard guard(lock_);
    std::generate(out, out + count, [this] { return take(); });
}

} // namespace player

// The samples on their way from the decoder to the device.
//
// The decoder puts samples in as they arrive, the device takes blocks at its own pace. What the device gets is one
// continuous signal: it begins, ends, and changes its volume with a short ramp, so that nothing clicks. When samples
// are late, the sound fades out before the last one is used up and waits until there are enough again; each time this
// happens, more are kept in reserve. When too many have collected, because the encoder's clock is faster or because
// they came in a burst, the sound fades out for a moment and skips to the newest ones.
//
// Any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>

namespace player {

inline constexpr int soundRate = 48'000; // frames per second; a frame has one sample for each channel
inline constexpr int soundChannels = 2;

// One frame of the sound, as the device gets it.
struct SoundFrame {
    std::int16_t left = 0;
    std::int16_t right = 0;
};

class SoundFlow {
public:
    // Samples from the decoder.
    void put(const SoundFrame* frames, std::size_t count);

    // The next samples for the device; silence where there are none.
    void next(SoundFrame* out, std::size_t count);

    // The volume to fade to: 0 is silence, 1 leaves the samples as they are.
    void setGain(double gain);

    // The gain was set to 0 and everything that next() returns now is silence.
    bool silent() const;

    // Drops all samples. To be called when the device was closed.
    void clear();

private:
    double wantedGain() const;
    void decide();
    SoundFrame take();

    mutable std::mutex lock_; // guards all that follows
    std::deque<SoundFrame> frames_;
    std::size_t reserve_ = soundRate / 12; // samples that are collected before the sound begins
    double target_ = 0;
    double gain_ = 0;
    bool playing_ = false;  // false: collects samples
    bool skipping_ = false; // fades out to skip samples
};

} // namespace player

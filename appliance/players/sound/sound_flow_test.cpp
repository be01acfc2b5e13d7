// From the decoder's samples to those of the device: without a jump, whatever happens.
#include "appliance/players/sound/sound_flow.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

namespace player {
namespace {

constexpr std::size_t blockFrames = soundRate / 100;
constexpr double amplitude = 30'000;
constexpr double pitch = 440;
// A tone of this pitch and amplitude changes by at most 1728 from sample to sample, and a ramp adds a little.
constexpr int largestStep = 2000;

// A decoder and a device with a tone between them.
class Tone {
public:
    void put(std::size_t frames) {
        std::vector<SoundFrame> samples(frames);
        for (SoundFrame& sample : samples) {
            const double angle = 2 * M_PI * pitch * static_cast<double>(position_++) / soundRate;
            sample.left = static_cast<std::int16_t>(std::lround(amplitude * std::cos(angle)));
            sample.right = sample.left;
        }
        flow.put(samples.data(), samples.size());
    }
    void play(int blocks, bool fed = true) {
        for (int i = 0; i < blocks; ++i) {
            if (fed)
                put(blockFrames);
            heard.resize(heard.size() + blockFrames);
            flow.next(heard.data() + heard.size() - blockFrames, blockFrames);
        }
    }
    // The largest change from one sample to the next, from silence to silence.
    int step() const {
        int largest = 0;
        SoundFrame last;
        for (const SoundFrame& frame : heard) {
            largest =
                std::max({largest, std::abs(frame.left - last.left), std::abs(frame.right - last.right)});
            last = frame;
        }
        return std::max(largest, std::abs(int{last.left}));
    }
    // The highest sample of the last blocks.
    int loudness(int blocks = 5) const {
        int highest = 0;
        for (auto frame = heard.end() - static_cast<std::ptrdiff_t>(blocks * blockFrames);
             frame != heard.end(); ++frame)
            highest = std::max(highest, std::abs(int{frame->left}));
        return highest;
    }

    SoundFlow flow;
    std::vector<SoundFrame> heard;

private:
    std::size_t position_ = 0;
};

TEST(SoundFlow, IsSilentBeforeItGetsAVolumeAndSamples) {
    Tone tone;
    tone.play(100);
    EXPECT_EQ(tone.loudness(100), 0);
    EXPECT_TRUE(tone.flow.silent());
    Tone empty;
    empty.flow.setGain(1);
    empty.play(100, false);
    EXPECT_EQ(empty.loudness(100), 0);
    EXPECT_FALSE(empty.flow.silent());
}

TEST(SoundFlow, BeginsAndEndsWithARamp) {
    Tone tone;
    tone.flow.setGain(1);
    tone.play(50);
    EXPECT_GT(tone.loudness(), amplitude * 0.99);
    tone.flow.setGain(0);
    EXPECT_FALSE(tone.flow.silent());
    tone.play(10);
    EXPECT_TRUE(tone.flow.silent());
    EXPECT_EQ(tone.loudness(2), 0);
    EXPECT_LE(tone.step(), largestStep);
    EXPECT_GT(tone.step(), 1000) << "the tone itself";
}

TEST(SoundFlow, ChangesItsVolumeWithARamp) {
    Tone tone;
    tone.flow.setGain(1);
    tone.play(50);
    for (const double gain : {0.1, 1.0, 0.0, 0.5}) {
        tone.flow.setGain(gain);
        tone.play(10);
        EXPECT_NEAR(tone.loudness(), amplitude * gain, amplitude * 0.01);
    }
    tone.flow.setGain(0);
    tone.play(10);
    EXPECT_LE(tone.step(), largestStep);
}

TEST(SoundFlow, LateSamplesAreFadedOutBeforeTheyRunOut) {
    Tone tone;
    tone.flow.setGain(1);
    tone.play(50);
    tone.play(50, false);
    EXPECT_EQ(tone.loudness(), 0);
    EXPECT_FALSE(tone.flow.silent()) << "nobody asked for silence";
    tone.play(100);
    EXPECT_GT(tone.loudness(), amplitude * 0.99);
    tone.flow.setGain(0);
    tone.play(10);
    EXPECT_LE(tone.step(), largestStep);
}

TEST(SoundFlow, LearnsToKeepMoreWhereSamplesComeInLargePieces) {
    Tone tone;
    tone.flow.setGain(1);
    constexpr int pieceBlocks = 25;
    for (int i = 0; i < 40; ++i) {
        tone.put(pieceBlocks * blockFrames);
        tone.play(pieceBlocks, false);
    }
    EXPECT_GT(tone.loudness(pieceBlocks), amplitude * 0.99);
    const auto pauses = [&] {
        int silent = 0;
        for (std::size_t at = tone.heard.size() / 2; at + blockFrames <= tone.heard.size(); at += blockFrames)
            silent += std::all_of(&tone.heard[at], &tone.heard[at] + blockFrames,
                                  [](const SoundFrame& frame) { return frame.left == 0; });
        return silent;
    };
    EXPECT_EQ(pauses(), 0) << "in the second half";
    tone.flow.setGain(0);
    tone.play(10);
    EXPECT_LE(tone.step(), largestStep);
}

TEST(SoundFlow, BurstIsSkippedWithoutAJump) {
    Tone tone;
    tone.flow.setGain(1);
    tone.play(50);
    tone.put(2 * soundRate);
    tone.play(100);
    EXPECT_GT(tone.loudness(), amplitude * 0.99);
    // What is left is no more than the reserve: without new samples it is soon silent.
    tone.play(100, false);
    EXPECT_EQ(tone.loudness(), 0);
    EXPECT_LE(tone.step(), largestStep);
}

TEST(SoundFlow, EndlessSamplesWithoutADeviceTakeNoMemory) {
    Tone tone;
    for (int i = 0; i < 100; ++i)
        tone.put(soundRate);
    tone.flow.setGain(1);
    tone.play(400, false);
    EXPECT_EQ(tone.loudness(), 0) << "it kept more than four seconds";
    EXPECT_LE(tone.step(), largestStep);
}

} // namespace
} // namespace player

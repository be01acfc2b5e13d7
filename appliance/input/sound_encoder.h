// Encodes sound of any form as AAC with two channels.
#pragma once

#include "appliance/input/av_objects.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

struct SwrContext;

namespace input {

// For one thread.
class SoundEncoder {
public:
    using Take = std::function<void(AVPacket& packet, AVRational unit)>;
    explicit SoundEncoder(Take take);
    ~SoundEncoder();
    SoundEncoder(const SoundEncoder&) = delete;
    SoundEncoder& operator=(const SoundEncoder&) = delete;

    // `rate`: samples a second of what comes in. False when it can't be encoded.
    bool open(int rate);
    const AVCodecParameters& parameters() const { return *parameters_; }

    // Its time in microseconds. What can't be converted is left out.
    void encode(const AVFrame& sound);

private:
    void convert(const AVFrame& sound);
    void encodeBlock();

    static constexpr std::size_t channels = 2;

    Take take_;
    Av<AVCodecContext> encoder_;
    Av<AVCodecParameters> parameters_;
    SwrContext* converter_ = nullptr;
    Av<AVFrame> block_{av_frame_alloc()};
    Av<AVPacket> packet_{av_packet_alloc()};
    std::array<std::vector<float>, channels> waiting_; // samples of each channel that are no whole block yet
    std::int64_t next_ = AV_NOPTS_VALUE;               // the time of the next block, in samples
};

} // namespace input

#include "appliance/input/sound_encoder.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

extern "C" {
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

namespace input {
namespace {

constexpr std::int64_t bitRate = 96'000;
constexpr int largestDrift =
    5; // a fifth of a second between the clock of the container and the count of samples

} // namespace

SoundEncoder::SoundEncoder(Take take) : take_(std::move(take)) {}

SoundEncoder::~SoundEncoder() {
    swr_free(&converter_);
}

bool SoundEncoder::open(int rate) {
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_AAC);
    encoder_.reset(codec == nullptr ? nullptr : avcodec_alloc_context3(codec));
    if (encoder_ == nullptr)
        return false;
    // AAC does not have every rate.
    encoder_->sample_rate = rate == 44100 || rate == 32000 || rate == 16000 || rate == 8000 ? rate : 48000;
    encoder_->sample_fmt = AV_SAMPLE_FMT_FLTP;
    encoder_->bit_rate = bitRate;
    encoder_->time_base = {1, encoder_->sample_rate};
    encoder_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    av_channel_layout_default(&encoder_->ch_layout, channels);
    if (avcodec_open2(encoder_.get(), codec, nullptr) < 0)
        return false;
    parameters_.reset(avcodec_parameters_alloc());
    return avcodec_parameters_from_context(parameters_.get(), encoder_.get()) >= 0;
}

void SoundEncoder::encode(const AVFrame& sound) {
    AVChannelLayout from{};
    if (sound.ch_layout.order == AV_CHANNEL_ORDER_UNSPEC)
        av_channel_layout_default(&from, sound.ch_layout.nb_channels);
    else
        av_channel_layout_copy(&from, &sound.ch_layout);
    if (converter_ == nullptr &&
        (swr_alloc_set_opts2(&converter_, &encoder_->ch_layout, encoder_->sample_fmt, encoder_->sample_rate,
                             &from, static_cast<AVSampleFormat>(sound.format), sound.sample_rate, 0,
                             nullptr) < 0 ||
         swr_init(converter_) < 0)) {
        swr_free(&converter_);
        return;
    }
    if (sound.pts != AV_NOPTS_VALUE) {
        const std::int64_t now = av_rescale_q(sound.pts, microseconds, encoder_->time_base) -
                                 swr_get_delay(converter_, encoder_->sample_rate) -
                                 static_cast<std::int64_t>(waiting_[0].size());
        if (next_ == AV_NOPTS_VALUE || std::llabs(now - next_) > encoder_->sample_rate / largestDrift)
            next_ = now;
    }
    convert(sound);
    while (waiting_[0].size() >= static_cast<std::size_t>(encoder_->frame_size))
        encodeBlock();
}

void SoundEncoder::convert(const AVFrame& sound) {
    const int room = swr_get_out_samples(converter_, sound.nb_samples);
    std::array<std::uint8_t*, channels> planes{};
    std::array<std::size_t, channels> before{};
    for (std::size_t i = 0; i < channels; ++i) {
        before[i] = waiting_[i].size();
        waiting_[i].resize(before[i] + static_cast<std::size_t>(std::max(room, 0)));
        planes[i] = reinterpret_cast<std::uint8_t*>(waiting_[i].data() + before[i]);
    }
    const int count = swr_convert(converter_, planes.data(), room,
                                  const_cast<const std::uint8_t**>(sound.extended_data), sound.nb_samples);
    for (std::size_t i = 0; i < channels; ++i)
        waiting_[i].resize(before[i] + static_cast<std::size_t>(std::max(count, 0)));
}

void SoundEncoder::encodeBlock() {
    const auto size = static_cast<std::size_t>(encoder_->frame_size);
    av_frame_unref(block_.get());
    block_->nb_samples = encoder_->frame_size;
    block_->format = encoder_->sample_fmt;
    block_->sample_rate = encoder_->sample_rate;
    av_channel_layout_copy(&block_->ch_layout, &encoder_->ch_layout);
    const bool good = av_frame_get_buffer(block_.get(), 0) >= 0;
    for (std::size_t i = 0; i < channels; ++i) {
        if (good)
            std::memcpy(block_->extended_data[i], waiting_[i].data(), size * sizeof(float));
        waiting_[i].erase(waiting_[i].begin(), waiting_[i].begin() + static_cast<std::ptrdiff_t>(size));
    }
    block_->pts = next_ == AV_NOPTS_VALUE ? 0 : next_;
    next_ = block_->pts + encoder_->frame_size;
    if (!good || avcodec_send_frame(encoder_.get(), block_.get()) < 0)
        return;
    while (avcodec_receive_packet(encoder_.get(), packet_.get()) == 0) {
        take_(*packet_, encoder_->time_base);
        av_packet_unref(packet_.get());
    }
}

} // namespace input

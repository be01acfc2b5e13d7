#include "appliance/input/track.h"

#include "appliance/input/picture_encoder.h"
#include "appliance/input/sound_encoder.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace input {
namespace {

std::string nameOf(AVCodecID codec) {
    std::string name = avcodec_get_name(codec);
    std::ranges::transform(name, name.begin(), [](char c) {
        return static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    });
    return name;
}

Av<AVCodecContext> decoderOf(const AVCodecParameters& parameters) {
    const AVCodec* codec = avcodec_find_decoder(parameters.codec_id);
    Av<AVCodecContext> decoder(codec == nullptr ? nullptr : avcodec_alloc_context3(codec));
    if (decoder == nullptr || avcodec_parameters_to_context(decoder.get(), &parameters) < 0)
        return nullptr;
    decoder->thread_type = FF_THREAD_SLICE; // threads by pictures delay each of them
    decoder->thread_count = 2;
    return avcodec_open2(decoder.get(), codec, nullptr) < 0 ? nullptr : std::move(decoder);
}

// The filter that changes a container's form of the stream to that which is sent in packets; null: none is needed.
Av<AVBSFContext> filterOf(const AVCodecParameters& parameters) {
    const char* name = nullptr;
    if (parameters.codec_id == AV_CODEC_ID_MPEG4)
        name = "mpeg4_unpack_bframes";
    if (parameters.codec_id == AV_CODEC_ID_AAC && parameters.extradata_size == 0)
        name = "aac_adtstoasc";
    const AVBitStreamFilter* filter = name == nullptr ? nullptr : av_bsf_get_by_name(name);
    AVBSFContext* context = nullptr;
    if (filter == nullptr || av_bsf_alloc(filter, &context) < 0)
        return nullptr;
    Av<AVBSFContext> made(context);
    if (avcodec_parameters_copy(made->par_in, &parameters) < 0 || av_bsf_init(made.get()) < 0)
        return nullptr;
    return made;
}

class CopiedTrack : public Track {
public:
    CopiedTrack(Output& output, bool video, const AVCodecParameters& parameters)
        : output_(output), video_(video), filter_(filterOf(parameters)) {}

    void take(AVPacket& packet, AVRational unit) override {
        if (filter_ == nullptr)
            return write(packet, unit);
        if (av_bsf_send_packet(filter_.get(), &packet) < 0)
            return;
        while (av_bsf_receive_packet(filter_.get(), filtered_.get()) == 0) {
            write(*filtered_, unit);
            av_packet_unref(filtered_.get());
        }
    }
    void rewind() override {
        if (filter_ != nullptr)
            av_bsf_flush(filter_.get());
    }

private:
    void write(AVPacket& packet, AVRational unit) {
        if (video_)
            output_.writeVideo(packet, unit);
        else
            output_.writeSound(packet, unit);
    }

    Output& output_;
    bool video_;
    Av<AVBSFContext> filter_;
    Av<AVPacket> filtered_{av_packet_alloc()};
};

class EncodedVideo : public Track {
public:
    EncodedVideo(Output& output, const AVCodecParameters& parameters)
        : decoder_(decoderOf(parameters)),
          encoder_([&output](const AVCodecParameters& encoded, AVPacket& packet) {
              output.addVideo(encoded);
              output.writeVideo(packet, microseconds);
          }) {
        const std::string codec = nameOf(parameters.codec_id);
        if (decoder_ == nullptr)
            throw InputFailure{"this machine can't decode " + codec};
        output.sayEncoded(codec);
    }

    void take(AVPacket& packet, AVRational unit) override {
        av_packet_rescale_ts(&packet, unit, microseconds);
        if (avcodec_send_packet(decoder_.get(), &packet) == 0)
            takeFrames();
        else
            countFailure();
    }
    void rewind() override {
        avcodec_send_packet(decoder_.get(), nullptr); // gives its last pictures out
        takeFrames();
        avcodec_flush_buffers(decoder_.get());
    }

private:
    static constexpr int mostFailures = 100; // in a row, before the first picture

    void takeFrames() {
        while (avcodec_receive_frame(decoder_.get(), frame_.get()) == 0) {
            shown_ = true;
            encoder_.encode(
                *frame_, frame_->best_effort_timestamp == AV_NOPTS_VALUE ? 0 : frame_->best_effort_timestamp);
            av_frame_unref(frame_.get());
        }
    }
    void countFailure() {
        if (!shown_ && ++failures_ > mostFailures)
            throw InputFailure{"none of its pictures can be decoded"};
    }

    Av<AVCodecContext> decoder_;
    Av<AVFrame> frame_{av_frame_alloc()};
    PictureEncoder encoder_;
    bool shown_ = false;
    int failures_ = 0;
};

class EncodedSound : public Track {
public:
    EncodedSound(Output& output, Av<AVCodecContext> decoder)
        : decoder_(std::move(decoder)),
          encoder_([&output](AVPacket& packet, AVRational unit) { output.writeSound(packet, unit); }) {}

    bool open(Output& output) {
        return encoder_.open(decoder_->sample_rate) && output.addSound(encoder_.parameters());
    }

    void take(AVPacket& packet, AVRational unit) override {
        av_packet_rescale_ts(&packet, unit, microseconds);
        if (avcodec_send_packet(decoder_.get(), &packet) < 0)
            return;
        while (avcodec_receive_frame(decoder_.get(), frame_.get()) == 0) {
            encoder_.encode(*frame_);
            av_frame_unref(frame_.get());
        }
    }
    void rewind() override { avcodec_flush_buffers(decoder_.get()); }

private:
    Av<AVCodecContext> decoder_;
    Av<AVFrame> frame_{av_frame_alloc()};
    SoundEncoder encoder_;
};

// The packetizer wants to know the sampling, which a camera's pictures have and its parameters do not.
void completeJpeg(AVCodecParameters& parameters, const AVPacket& first) {
    const Av<AVCodecContext> decoder = parameters.format == AV_PIX_FMT_NONE ? decoderOf(parameters) : nullptr;
    const Av<AVFrame> frame(av_frame_alloc());
    if (decoder == nullptr || avcodec_send_packet(decoder.get(), &first) < 0)
        return;
    avcodec_send_packet(decoder.get(), nullptr);
    if (avcodec_receive_frame(decoder.get(), frame.get()) < 0)
        return;
    parameters.format = frame->format;
    parameters.width = frame->width;
    parameters.height = frame->height;
}

// Tries it: only some kinds of JPEG have a form in RTP.
bool rtpCarries(const AVCodecParameters& parameters, const AVPacket& first) {
    std::size_t packets = 0;
    const auto writer = RtpWriter::make(parameters, 96, [&](std::string_view) { ++packets; });
    const Av<AVPacket> copy(av_packet_clone(&first));
    if (writer != nullptr && copy != nullptr)
        writer->write(*copy, microseconds);
    return packets > 0;
}

bool isHandedOn(const AVCodecParameters& parameters, const AVPacket* first) {
    switch (static_cast<int>(parameters.codec_id)) {
    case AV_CODEC_ID_H264:
    case AV_CODEC_ID_HEVC:
    case AV_CODEC_ID_MPEG4:
    case AV_CODEC_ID_MPEG2VIDEO:
        return true;
    case AV_CODEC_ID_MJPEG:
        return first != nullptr && rtpCarries(parameters, *first);
    default:
        return false;
    }
}

// The description has AAC's rate and channels in the form of its configuration, which a stream with ADTS headers lacks.
void completeAac(AVCodecParameters& parameters) {
    constexpr int rates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                             22050, 16000, 12000, 11025, 8000,  7350};
    if (parameters.codec_id != AV_CODEC_ID_AAC || parameters.extradata_size > 0)
        return;
    const auto* const rate = std::ranges::find(rates, parameters.sample_rate);
    const int channels = parameters.ch_layout.nb_channels;
    if (rate == std::end(rates) || channels < 1 || channels > 7)
        return;
    constexpr unsigned lowComplexity = 2;
    const unsigned bits =
        lowComplexity << 11 | static_cast<unsigned>(rate - rates) << 7 | static_cast<unsigned>(channels) << 3;
    parameters.extradata = static_cast<std::uint8_t*>(av_mallocz(2 + AV_INPUT_BUFFER_PADDING_SIZE));
    parameters.extradata_size = 2;
    parameters.extradata[0] = static_cast<std::uint8_t>(bits >> 8);
    parameters.extradata[1] = static_cast<std::uint8_t>(bits);
}

bool isHandedOn(const AVCodecParameters& sound) {
    switch (static_cast<int>(sound.codec_id)) {
    case AV_CODEC_ID_PCM_MULAW:
    case AV_CODEC_ID_PCM_ALAW:
        return sound.sample_rate == 8000 && sound.ch_layout.nb_channels == 1;
    case AV_CODEC_ID_AAC:
    case AV_CODEC_ID_MP2:
    case AV_CODEC_ID_MP3:
        return true;
    default:
        return false;
    }
}

} // namespace

std::unique_ptr<Track> videoTrack(Output& output, const AVCodecParameters& parameters,
                                  const AVPacket* first) {
    const Av<AVCodecParameters> complete(avcodec_parameters_alloc());
    avcodec_parameters_copy(complete.get(), &parameters);
    if (parameters.codec_id == AV_CODEC_ID_MJPEG && first != nullptr)
        completeJpeg(*complete, *first);
    if (!isHandedOn(*complete, first))
        return std::make_unique<EncodedVideo>(output, parameters);
    output.addVideo(*complete);
    return std::make_unique<CopiedTrack>(output, true, parameters);
}

std::unique_ptr<Track> soundTrack(Output& output, const AVCodecParameters& parameters) {
    if (isHandedOn(parameters)) {
        const Av<AVCodecParameters> complete(avcodec_parameters_alloc());
        avcodec_parameters_copy(complete.get(), &parameters);
        completeAac(*complete);
        if (output.addSound(*complete))
            return std::make_unique<CopiedTrack>(output, false, parameters);
    }
    Av<AVCodecContext> decoder = decoderOf(parameters);
    if (decoder == nullptr || decoder->sample_rate <= 0)
        return nullptr;
    auto track = std::make_unique<EncodedSound>(output, std::move(decoder));
    return track->open(output) ? std::move(track) : nullptr;
}

} // namespace input

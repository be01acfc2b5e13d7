#include "appliance/encoder/codecs/video_encoder.h"

#include <utility>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

namespace {

constexpr int evenQuality = 4; // the quantizer of MPEG-2 and MPEG-4, 1 to 31
constexpr const char* h264Quality = "24";

const AVCodec* codecOf(Codec codec) {
    switch (codec) {
    case Codec::Mpeg4:
        return avcodec_find_encoder(AV_CODEC_ID_MPEG4);
    case Codec::Mpeg2:
        return avcodec_find_encoder(AV_CODEC_ID_MPEG2VIDEO);
    case Codec::H264:
        return avcodec_find_encoder_by_name("libx264");
    }
    return nullptr;
}

} // namespace

struct VideoEncoder::State {
    AVCodecContext* context = nullptr;
    SwsContext* converter = nullptr;
    AVFrame* frame = nullptr;
    AVPacket* packet = nullptr;
    std::int64_t count = 0;

    State() = default;
    ~State() {
        avcodec_free_context(&context);
        sws_freeContext(converter);
        av_frame_free(&frame);
        av_packet_free(&packet);
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    bool open(const CodecSettings& settings, int width, int height, int fps);
    void set(const CodecSettings& settings) const;
};

void VideoEncoder::State::set(const CodecSettings& settings) const {
    context->pix_fmt = AV_PIX_FMT_YUV420P;
    context->gop_size = settings.keyInterval;
    // B pictures and threads would delay each picture.
    context->max_b_frames = 0;
    context->thread_count = 1;
    context->flags |= AV_CODEC_FLAG_LOW_DELAY;
    if (settings.bitrate > 0) {
        context->bit_rate = settings.bitrate * 1000LL;
        context->rc_max_rate = context->bit_rate;
        context->rc_buffer_size = settings.bitrate * 1000;
    }
    if (settings.codec == Codec::H264) {
        av_opt_set(context->priv_data, "preset", "superfast", 0);
        av_opt_set(context->priv_data, "tune", "zerolatency", 0);
        av_opt_set(context->priv_data, "forced-idr", "1", 0);
        if (settings.bitrate == 0)
            av_opt_set(context->priv_data, "crf", h264Quality, 0);
    } else if (settings.bitrate == 0) {
        context->flags |= AV_CODEC_FLAG_QSCALE;
        context->global_quality = evenQuality * FF_QP2LAMBDA;
    }
}

bool VideoEncoder::State::open(const CodecSettings& settings, int width, int height, int fps) {
    av_log_set_level(AV_LOG_ERROR);
    const AVCodec* codec = codecOf(settings.codec);
    context = codec == nullptr ? nullptr : avcodec_alloc_context3(codec);
    if (context == nullptr)
        return false;
    context->width = width;
    context->height = height;
    context->time_base = {1, fps};
    context->framerate = {fps, 1};
    // MPEG-2 has a fixed list of rates. This makes it take the nearest one instead of failing.
    context->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
    set(settings);
    if (avcodec_open2(context, codec, nullptr) < 0)
        return false;
    converter = sws_getContext(width, height, AV_PIX_FMT_BGR0, width, height, context->pix_fmt,
                               SWS_FAST_BILINEAR, nullptr, nullptr, nullptr);
    frame = av_frame_alloc();
    packet = av_packet_alloc();
    if (converter == nullptr || frame == nullptr || packet == nullptr)
        return false;
    frame->format = context->pix_fmt;
    frame->width = width;
    frame->height = height;
    return av_frame_get_buffer(frame, 0) == 0;
}

VideoEncoder::VideoEncoder(std::unique_ptr<State> state) : state_(std::move(state)) {}

VideoEncoder::~VideoEncoder() = default;

bool VideoEncoder::has(Codec codec) {
    return codecOf(codec) != nullptr;
}

std::unique_ptr<VideoEncoder> VideoEncoder::open(const CodecSettings& settings, int width, int height,
                                                 int fps) {
    auto state = std::make_unique<State>();
    if (!state->open(settings, width, height, fps))
        return nullptr;
    return std::unique_ptr<VideoEncoder>(new VideoEncoder(std::move(state)));
}

std::string VideoEncoder::encode(const Picture& picture, bool asKey) {
    State& s = *state_;
    if (picture.width != s.context->width || picture.height != s.context->height ||
        av_frame_make_writable(s.frame) < 0)
        return {};
    const std::uint8_t* const rows[] = {picture.bytes.data()};
    const int strides[] = {picture.stride()};
    sws_scale(s.converter, rows, strides, 0, picture.height, s.frame->data, s.frame->linesize);
    s.frame->pts = s.count++;
    s.frame->pict_type = asKey ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
    s.frame->quality = s.context->global_quality;
    std::string bytes;
    if (avcodec_send_frame(s.context, s.frame) < 0 || avcodec_receive_packet(s.context, s.packet) < 0)
        return {};
    bytes.assign(reinterpret_cast<const char*>(s.packet->data), static_cast<std::size_t>(s.packet->size));
    av_packet_unref(s.packet);
    return bytes;
}

#include "appliance/input/picture_encoder.h"

#include "appliance/input/gateway_socket.h"

#include <algorithm>

extern "C" {
#include <libavutil/opt.h>
}

namespace input {
namespace {

constexpr std::int64_t keyInterval = 2'000'000; // microseconds
constexpr const char* h264Quality = "23";
constexpr int mpeg4Quality = 4; // quantizer, 1 to 31

const AVCodec* bestEncoder() {
    for (const char* name : {"libx264", "libopenh264", "mpeg4"}) {
        if (const AVCodec* codec = avcodec_find_encoder_by_name(name))
            return codec;
    }
    return nullptr;
}

bool isPassedOn(int format) {
    return format == AV_PIX_FMT_YUV420P || format == AV_PIX_FMT_YUVJ420P;
}

void setQuality(AVCodecContext& encoder) {
    av_opt_set(encoder.priv_data, "preset", "superfast", 0);
    av_opt_set(encoder.priv_data, "tune", "zerolatency", 0);
    av_opt_set(encoder.priv_data, "forced-idr", "1", 0);
    av_opt_set(encoder.priv_data, "crf", h264Quality, 0);
    if (encoder.codec_id == AV_CODEC_ID_MPEG4) {
        encoder.flags |= AV_CODEC_FLAG_QSCALE;
        encoder.global_quality = mpeg4Quality * FF_QP2LAMBDA;
    }
}

} // namespace

bool PictureEncoder::fits(const AVFrame& picture) const {
    return encoder_ != nullptr && picture.width == width_ && picture.height == height_ &&
           picture.format == format_;
}

void PictureEncoder::open(const AVFrame& picture) {
    const AVCodec* codec = bestEncoder();
    encoder_.reset(codec == nullptr ? nullptr : avcodec_alloc_context3(codec));
    if (encoder_ == nullptr)
        throw InputFailure{"this machine has no video encoder"};
    encoder_->width = std::max(2, picture.width & ~1);
    encoder_->height = std::max(2, picture.height & ~1);
    encoder_->sample_aspect_ratio = picture.sample_aspect_ratio;
    encoder_->pix_fmt = picture.format == AV_PIX_FMT_YUVJ420P && codec->id == AV_CODEC_ID_H264
                            ? AV_PIX_FMT_YUVJ420P
                            : AV_PIX_FMT_YUV420P;
    encoder_->color_range = picture.color_range;
    encoder_->colorspace = picture.colorspace;
    // MPEG-4 has no finer times than this.
    encoder_->time_base = {1, codec->id == AV_CODEC_ID_MPEG4 ? 1000 : 90000};
    encoder_->gop_size = 250; // the time decides
    encoder_->max_b_frames = 0;
    encoder_->thread_count = 1; // more of them delay the pictures
    encoder_->flags |= AV_CODEC_FLAG_LOW_DELAY;
    setQuality(*encoder_);
    if (const int error = avcodec_open2(encoder_.get(), codec, nullptr); error < 0) {
        encoder_.reset();
        throw InputFailure{"pictures of " + std::to_string(picture.width) + "x" +
                           std::to_string(picture.height) + " can't be encoded: " + avError(error)};
    }
    parameters_.reset(avcodec_parameters_alloc());
    avcodec_parameters_from_context(parameters_.get(), encoder_.get());
    width_ = picture.width;
    height_ = picture.height;
    format_ = picture.format;
    keyTime_ = INT64_MIN / 2;
}

// The picture in the encoder's size and colours.
const AVFrame& PictureEncoder::prepared(const AVFrame& picture) {
    if (isPassedOn(picture.format) && picture.width == encoder_->width &&
        picture.height == encoder_->height && encoder_->pix_fmt == picture.format)
        return picture;
    scaler_.reset(sws_getCachedContext(
        scaler_.release(), picture.width, picture.height, static_cast<AVPixelFormat>(picture.format),
        encoder_->width, encoder_->height, encoder_->pix_fmt, SWS_BILINEAR, nullptr, nullptr, nullptr));
    av_frame_unref(converted_.get());
    converted_->width = encoder_->width;
    converted_->height = encoder_->height;
    converted_->format = encoder_->pix_fmt;
    if (scaler_ == nullptr || av_frame_get_buffer(converted_.get(), 0) < 0)
        throw InputFailure{"the colours of the pictures can't be converted"};
    sws_scale(scaler_.get(), picture.data, picture.linesize, 0, picture.height, converted_->data,
              converted_->linesize);
    return *converted_;
}

void PictureEncoder::encode(const AVFrame& picture, std::int64_t time) {
    if (!fits(picture))
        open(picture);
    const Av<AVFrame> frame(av_frame_clone(&prepared(picture)));
    if (frame == nullptr)
        throw InputFailure{"there is no memory for a picture"};
    frame->pts = av_rescale_q(time, microseconds, encoder_->time_base);
    if (frame->pts <= lastTime_) // an encoder takes no time twice
        frame->pts = lastTime_ + 1;
    lastTime_ = frame->pts;
    const bool key = time - keyTime_ >= keyInterval || time < keyTime_;
    frame->pict_type = key ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
    if (key)
        keyTime_ = time;
    if (avcodec_send_frame(encoder_.get(), frame.get()) < 0)
        return;
    while (avcodec_receive_packet(encoder_.get(), packet_.get()) == 0) {
        av_packet_rescale_ts(packet_.get(), encoder_->time_base, microseconds);
        take_(*parameters_, *packet_);
        av_packet_unref(packet_.get());
    }
}

} // namespace input

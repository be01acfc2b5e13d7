#include "appliance/players/decoding/av_decoder.h"

#include <libcommon/log.h>

#include <algorithm>
#include <cstring>
#include <utility>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/imgutils.h>
#include <libavutil/log.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

namespace player {
namespace {

constexpr int highestAnalogue = 576; // rows; pictures with more are in the colours of high definition

bool isPassedOn(const AVFrame& frame) {
    return (frame.format == AV_PIX_FMT_YUV420P || frame.format == AV_PIX_FMT_YUVJ420P ||
            frame.format == AV_PIX_FMT_NV12) &&
           frame.width <= screen::maxPictureSide && frame.height <= screen::maxPictureSide;
}

screen::PictureShape shapeOf(const AVFrame& frame) {
    screen::PictureShape shape;
    shape.width = frame.width;
    shape.height = frame.height;
    shape.format = frame.format == AV_PIX_FMT_NV12 ? screen::PixelFormat::nv12 : screen::PixelFormat::i420;
    const AVRational& aspect = frame.sample_aspect_ratio;
    if (aspect.num > 0 && aspect.den > 0 && aspect.num <= screen::maxPixelAspect &&
        aspect.den <= screen::maxPixelAspect) {
        shape.aspectNumerator = aspect.num;
        shape.aspectDenominator = aspect.den;
    }
    const bool hd = frame.colorspace == AVCOL_SPC_BT709 ||
                    (frame.colorspace == AVCOL_SPC_UNSPECIFIED && frame.height > highestAnalogue);
    shape.matrix = hd ? screen::ColourMatrix::bt709 : screen::ColourMatrix::bt601;
    shape.fullRange = frame.color_range == AVCOL_RANGE_JPEG || frame.format == AV_PIX_FMT_YUVJ420P;
    return shape;
}

screen::PictureView viewOf(const AVFrame& frame) {
    screen::PictureView view;
    view.shape = shapeOf(frame);
    for (std::size_t i = 0; i < static_cast<std::size_t>(screen::planeCount(view.shape.format)); ++i) {
        view.plane[i] = frame.data[i];
        view.stride[i] = static_cast<std::size_t>(std::max(0, frame.linesize[i]));
    }
    return view;
}

} // namespace

struct AvDecoder::State {
    AVCodecContext* context = nullptr;
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    AVFrame* converted = av_frame_alloc();
    SwsContext* scaler = nullptr;
    bool refused = false; // a picture could not be converted; logged once

    State() = default;
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State() {
        sws_freeContext(scaler);
        av_frame_free(&converted);
        av_frame_free(&frame);
        av_packet_free(&packet);
        avcodec_free_context(&context);
    }
    bool given = false;  // the first picture was given
    bool hadKey = false; // a key picture came
    bool plain = false;  // since the last key picture no picture was one that is shown before an earlier one
    bool fill(const std::uint8_t* unit, std::size_t bytes) const;
    bool receive(const Give& give);
    void giveFirst(const Give& give);
    void followOrder();
    bool convert();
    void give(const Give& give);
};

// The decoder reads beyond the end, so the unit needs a copy with room behind it.
bool AvDecoder::State::fill(const std::uint8_t* unit, std::size_t bytes) const {
    av_packet_unref(packet);
    if (bytes == 0 || bytes > INT32_MAX / 2 || av_new_packet(packet, static_cast<int>(bytes)) != 0)
        return false;
    std::memcpy(packet->data, unit, bytes);
    return true;
}

// Converts the frame to I420, in a size that the screen can take.
bool AvDecoder::State::convert() {
    const int largest = std::max(frame->width, frame->height);
    const int divisor = (largest + screen::maxPictureSide - 1) / screen::maxPictureSide;
    const int width = std::max(1, frame->width / divisor);
    const int height = std::max(1, frame->height / divisor);
    scaler = sws_getCachedContext(
        scaler, frame->width, frame->height, static_cast<AVPixelFormat>(frame->format), width, height,
        AV_PIX_FMT_YUV420P, divisor > 1 ? SWS_AREA : SWS_FAST_BILINEAR, nullptr, nullptr, nullptr);
    if (scaler == nullptr)
        return false;
    if (converted->width != width || converted->height != height) {
        av_frame_unref(converted);
        converted->format = AV_PIX_FMT_YUV420P;
        converted->width = width;
        converted->height = height;
        if (av_frame_get_buffer(converted, 0) != 0)
            return false;
    }
    converted->sample_aspect_ratio = frame->sample_aspect_ratio;
    const AVPixFmtDescriptor* format = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame->format));
    const bool rgb = format != nullptr && (format->flags & AV_PIX_FMT_FLAG_RGB) != 0;
    converted->colorspace = rgb ? AVCOL_SPC_SMPTE170M : frame->colorspace;
    converted->color_range = rgb ? AVCOL_RANGE_MPEG : frame->color_range;
    return sws_scale(scaler, frame->data, frame->linesize, 0, frame->height, converted->data,
                     converted->linesize) == height;
}

void AvDecoder::State::give(const Give& give) {
    if ((frame->flags & AV_FRAME_FLAG_CORRUPT) != 0)
        return;
    if (isPassedOn(*frame)) {
        give(viewOf(*frame));
    } else if (convert()) {
        give(viewOf(*converted));
    } else if (!std::exchange(refused, true)) {
        const char* name = av_get_pix_fmt_name(static_cast<AVPixelFormat>(frame->format));
        logmsg(3, "Pictures of %dx%d in the format %s can't be shown", frame->width, frame->height,
               name == nullptr ? "unknown" : name);
    }
}

// Gives what the decoder has; false when it has nothing.
bool AvDecoder::State::receive(const Give& taker) {
    bool any = false;
    while (avcodec_receive_frame(context, frame) == 0) {
        any = true;
        followOrder();
        give(taker);
        av_frame_unref(frame);
    }
    given = given || any;
    return any;
}

// The decoder may keep the first picture until it knows that no other belongs before it. It is taken out by ending the
// stream, which begins anew with the same unit.
void AvDecoder::State::giveFirst(const Give& taker) {
    avcodec_send_packet(context, nullptr);
    receive(taker);
    avcodec_flush_buffers(context);
    if (given)
        avcodec_send_packet(context, packet);
}

// A decoder of MPEG-2 keeps every picture until the next one comes, because that one might belong before it. It need not,
// while the stream has no such pictures. It looks at the flag at each sequence header.
void AvDecoder::State::followOrder() {
    if (context->codec_id != AV_CODEC_ID_MPEG2VIDEO)
        return;
    if (frame->pict_type == AV_PICTURE_TYPE_B) {
        plain = false;
        context->flags &= ~AV_CODEC_FLAG_LOW_DELAY;
    } else if (frame->pict_type == AV_PICTURE_TYPE_I) {
        if (hadKey && plain)
            context->flags |= AV_CODEC_FLAG_LOW_DELAY;
        hadKey = true;
        plain = true;
    }
}

AvDecoder::AvDecoder() : state_(std::make_unique<State>()) {}
AvDecoder::~AvDecoder() = default;

bool AvDecoder::open(const std::string& codec, const std::uint8_t* description, std::size_t bytes) {
    av_log_set_level(AV_LOG_QUIET);
    const AVCodec* decoder = avcodec_find_decoder_by_name(codec.c_str());
    avcodec_free_context(&state_->context);
    state_->context = decoder == nullptr ? nullptr : avcodec_alloc_context3(decoder);
    if (state_->context == nullptr) {
        logmsg(3, "There is no decoder for %s", codec.c_str());
        return false;
    }
    state_->context->thread_count = 1;
    if (bytes > 0) {
        state_->context->extradata =
            static_cast<std::uint8_t*>(av_mallocz(bytes + AV_INPUT_BUFFER_PADDING_SIZE));
        if (state_->context->extradata != nullptr) {
            std::memcpy(state_->context->extradata, description, bytes);
            state_->context->extradata_size = static_cast<int>(bytes);
        }
    }
    if (avcodec_open2(state_->context, decoder, nullptr) == 0)
        return true;
    logmsg(3, "The decoder for %s can't be opened", codec.c_str());
    avcodec_free_context(&state_->context);
    return false;
}

bool AvDecoder::decode(const std::uint8_t* unit, std::size_t bytes, const Give& give) {
    if (state_->context == nullptr || !state_->fill(unit, bytes))
        return false;
    const bool taken = avcodec_send_packet(state_->context, state_->packet) == 0;
    if (!state_->receive(give) && taken && !state_->given)
        state_->giveFirst(give);
    return taken;
}

} // namespace player

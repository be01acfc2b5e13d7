// libav's objects with destructors.
#pragma once

#include <memory>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

namespace input {

struct FreeAv {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    void operator()(AVCodecParameters* parameters) const { avcodec_parameters_free(&parameters); }
    void operator()(AVBSFContext* filter) const { av_bsf_free(&filter); }
    void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
    void operator()(AVFormatContext* container) const { avformat_close_input(&container); }
};

template<class Object>
using Av = std::unique_ptr<Object, FreeAv>;

inline constexpr AVRational microseconds{1, 1'000'000};

// "Invalid data found when processing input".
std::string avError(int code);

} // namespace input

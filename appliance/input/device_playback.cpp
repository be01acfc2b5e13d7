#include "appliance/input/device_playback.h"

#include "appliance/input/picture_encoder.h"
#include "appliance/input/track.h"

#include <cstring>
#include <linux/videodev2.h>

extern "C" {
#include <libavutil/imgutils.h>
}

namespace input {
namespace {

// libav's name of pictures that are not encoded.
AVPixelFormat formatOf(std::uint32_t pixels) {
    switch (pixels) {
    case V4L2_PIX_FMT_YUYV:
        return AV_PIX_FMT_YUYV422;
    case V4L2_PIX_FMT_UYVY:
        return AV_PIX_FMT_UYVY422;
    case V4L2_PIX_FMT_NV12:
        return AV_PIX_FMT_NV12;
    case V4L2_PIX_FMT_YUV420:
        return AV_PIX_FMT_YUV420P;
    case V4L2_PIX_FMT_RGB24:
        return AV_PIX_FMT_RGB24;
    case V4L2_PIX_FMT_GREY:
        return AV_PIX_FMT_GRAY8;
    default:
        return AV_PIX_FMT_NONE;
    }
}

class EncodedPictures {
public:
    EncodedPictures(Output& output, const AVCodecParameters& parameters)
        : output_(output), parameters_(parameters) {}

    void take(std::string_view picture, std::int64_t time) {
        if (av_new_packet(packet_.get(), static_cast<int>(picture.size())) < 0)
            return;
        std::memcpy(packet_->data, picture.data(), picture.size());
        packet_->pts = packet_->dts = time;
        packet_->flags = AV_PKT_FLAG_KEY;
        if (track_ == nullptr)
            track_ = videoTrack(output_, parameters_, packet_.get());
        track_->take(*packet_, microseconds);
        av_packet_unref(packet_.get());
    }

private:
    Output& output_;
    const AVCodecParameters& parameters_;
    std::unique_ptr<Track> track_;
    Av<AVPacket> packet_{av_packet_alloc()};
};

[[noreturn]] void playEncoded(const GatewaySocket& socket, VideoDevice& device, AVCodecID codec) {
    Output output(socket);
    const Av<AVCodecParameters> parameters(avcodec_parameters_alloc());
    parameters->codec_type = AVMEDIA_TYPE_VIDEO;
    parameters->codec_id = codec;
    parameters->width = device.form().width;
    parameters->height = device.form().height;
    EncodedPictures pictures(output, *parameters);
    for (;;)
        device.next([&](std::string_view picture, std::int64_t time) { pictures.take(picture, time); });
}

} // namespace

void playDevice(const GatewaySocket& socket, VideoDevice& device) {
    const DeviceForm& form = device.form();
    if (form.pixels == V4L2_PIX_FMT_H264)
        playEncoded(socket, device, AV_CODEC_ID_H264);
    const AVPixelFormat format = formatOf(form.pixels);
    if (format == AV_PIX_FMT_NONE)
        playEncoded(socket, device, AV_CODEC_ID_MJPEG);
    Output output(socket);
    output.sayEncoded("raw video");
    PictureEncoder encoder([&](const AVCodecParameters& parameters, AVPacket& packet) {
        output.addVideo(parameters);
        output.writeVideo(packet, microseconds);
    });
    const Av<AVFrame> frame(av_frame_alloc());
    for (;;) {
        device.next([&](std::string_view picture, std::int64_t time) {
            frame->format = format;
            frame->width = form.width;
            frame->height = form.height;
            if (av_image_fill_linesizes(frame->linesize, format, form.width) < 0)
                return;
            if (form.stride > 0 && frame->linesize[1] == 0)
                frame->linesize[0] = form.stride;
            std::uint8_t* bytes = reinterpret_cast<std::uint8_t*>(const_cast<char*>(picture.data()));
            const int size = av_image_fill_pointers(frame->data, format, form.height, bytes, frame->linesize);
            if (size > 0 && static_cast<std::size_t>(size) <= picture.size())
                encoder.encode(*frame, time);
        });
    }
}

} // namespace input

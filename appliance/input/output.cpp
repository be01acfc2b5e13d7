#include "appliance/input/output.h"

#include <vector>

namespace input {
namespace {

// The RTP payload types that codecs have by themselves (RFC 3551), and two for the others.
int payloadTypeOf(const AVCodecParameters& stream) {
    switch (static_cast<int>(stream.codec_id)) {
    case AV_CODEC_ID_PCM_MULAW:
        return 0;
    case AV_CODEC_ID_PCM_ALAW:
        return 8;
    case AV_CODEC_ID_MP2:
    case AV_CODEC_ID_MP3:
        return 14;
    case AV_CODEC_ID_MJPEG:
        return 26;
    case AV_CODEC_ID_MPEG2VIDEO:
        return 32;
    default:
        return stream.codec_type == AVMEDIA_TYPE_VIDEO ? 96 : 97;
    }
}

} // namespace

bool Output::addSound(const AVCodecParameters& parameters) {
    sound_ = RtpWriter::make(parameters, payloadTypeOf(parameters), [this](std::string_view packet) {
        if (video_ != nullptr)
            socket_.send(FromInput::sound, packet);
    });
    return sound_ != nullptr;
}

void Output::addVideo(const AVCodecParameters& parameters) {
    if (video_ != nullptr)
        return;
    auto video = RtpWriter::make(parameters, payloadTypeOf(parameters),
                                 [this](std::string_view packet) { socket_.send(FromInput::video, packet); });
    if (video == nullptr)
        throw InputFailure{std::string("video in the codec ") + avcodec_get_name(parameters.codec_id) +
                           " can't be sent"};
    std::vector<const RtpWriter*> writers{video.get()};
    if (sound_ != nullptr)
        writers.push_back(sound_.get());
    socket_.send(FromInput::description, RtpWriter::describe(writers));
    video_ = std::move(video);
}

void Output::writeVideo(AVPacket& packet, AVRational unit) {
    if (video_ != nullptr)
        video_->write(packet, unit);
}

void Output::writeSound(AVPacket& packet, AVRational unit) {
    if (sound_ != nullptr && video_ != nullptr)
        sound_->write(packet, unit);
}

} // namespace input

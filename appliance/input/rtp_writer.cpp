#include "appliance/input/rtp_writer.h"

#include <array>
#include <utility>

extern "C" {
#include <libavutil/opt.h>
}

namespace input {
namespace {

// As most cameras: it fits into a packet of Ethernet together with the headers of all layers.
constexpr int packetBytes = 1400;
constexpr int bufferBytes = 4096;
constexpr std::size_t descriptionBytes = 16 * 1024;

bool hasPacketizer(AVCodecID codec) {
    switch (static_cast<int>(codec)) {
    case AV_CODEC_ID_H264:
    case AV_CODEC_ID_HEVC:
    case AV_CODEC_ID_MPEG4:
    case AV_CODEC_ID_MPEG2VIDEO:
    case AV_CODEC_ID_MJPEG:
    case AV_CODEC_ID_PCM_MULAW:
    case AV_CODEC_ID_PCM_ALAW:
    case AV_CODEC_ID_MP2:
    case AV_CODEC_ID_MP3:
    case AV_CODEC_ID_AAC:
        return true;
    default:
        return false;
    }
}

} // namespace

std::string avError(int code) {
    std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
    av_strerror(code, text.data(), text.size());
    return text.data();
}

RtpWriter::RtpWriter(Send send, AVFormatContext* context) : send_(std::move(send)), context_(context) {}

RtpWriter::~RtpWriter() {
    if (context_->pb != nullptr) {
        av_freep(&context_->pb->buffer);
        avio_context_free(&context_->pb);
    }
    avformat_free_context(context_);
}

int RtpWriter::onBytes(void* self, std::uint8_t* bytes, int count) {
    auto& writer = *static_cast<RtpWriter*>(self);
    if (writer.thrown_ != nullptr)
        return AVERROR_EXIT;
    try {
        writer.send_({reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(count)});
    } catch (...) {
        writer.thrown_ = std::current_exception();
        return AVERROR_EXIT;
    }
    return count;
}

bool RtpWriter::open(const AVCodecParameters& parameters, int payloadType) {
    auto* buffer = static_cast<std::uint8_t*>(av_malloc(bufferBytes));
    context_->pb = avio_alloc_context(buffer, bufferBytes, 1, this, nullptr, &RtpWriter::onBytes, nullptr);
    AVStream* stream = avformat_new_stream(context_, nullptr);
    if (context_->pb == nullptr || stream == nullptr ||
        avcodec_parameters_copy(stream->codecpar, &parameters) < 0)
        return false;
    context_->pb->max_packet_size = packetBytes;
    stream->codecpar->codec_tag = 0;
    stream->time_base = {1, 90000};
    AVDictionary* options = nullptr;
    av_dict_set(&options, "rtpflags", "skip_rtcp", 0);
    av_dict_set_int(&options, "payload_type", payloadType, 0);
    const bool good = avformat_write_header(context_, &options) >= 0;
    av_dict_free(&options);
    return good;
}

std::unique_ptr<RtpWriter> RtpWriter::make(const AVCodecParameters& parameters, int payloadType, Send send) {
    AVFormatContext* context = nullptr;
    if (!hasPacketizer(parameters.codec_id) ||
        avformat_alloc_output_context2(&context, nullptr, "rtp", nullptr) < 0)
        return nullptr;
    std::unique_ptr<RtpWriter> writer(new RtpWriter(std::move(send), context));
    return writer->open(parameters, payloadType) ? std::move(writer) : nullptr;
}

void RtpWriter::write(AVPacket& packet, AVRational unit) {
    av_packet_rescale_ts(&packet, unit, context_->streams[0]->time_base);
    packet.stream_index = 0;
    // What a packetizer refuses is left out.
    av_write_frame(context_, &packet);
    avio_flush(context_->pb);
    if (const std::exception_ptr thrown = std::exchange(thrown_, nullptr); thrown != nullptr) {
        context_->pb->error = 0;
        std::rethrow_exception(thrown);
    }
}

std::string RtpWriter::describe(const std::vector<const RtpWriter*>& writers) {
    std::vector<AVFormatContext*> contexts;
    for (const RtpWriter* writer : writers)
        contexts.push_back(writer->context_);
    std::string text(descriptionBytes, '\0');
    if (av_sdp_create(contexts.data(), static_cast<int>(contexts.size()), text.data(),
                      static_cast<int>(text.size())) < 0)
        return "";
    return text.substr(0, text.find('\0'));
}

} // namespace input

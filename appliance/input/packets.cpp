#include "appliance/input/packets.h"

#include "appliance/input/depacketizer.h"
#include "appliance/input/track.h"

#include <cstring>

namespace input {
namespace {

AVCodecID codecOf(std::string_view name) {
    return name == "VP8" ? AV_CODEC_ID_VP8 : name == "VP9" ? AV_CODEC_ID_VP9 : AV_CODEC_ID_AV1;
}

} // namespace

void encodePackets(GatewaySocket& socket, const Request& request) {
    Output output(socket);
    const Av<AVCodecParameters> parameters(avcodec_parameters_alloc());
    parameters->codec_type = AVMEDIA_TYPE_VIDEO;
    parameters->codec_id = codecOf(request.codec);
    const std::unique_ptr<Track> track = videoTrack(output, *parameters, nullptr);
    const AVRational unit{1, request.clockRate};
    const Av<AVPacket> packet(av_packet_alloc());
    const auto depacketizer =
        Depacketizer::make(request.codec, [&](std::string_view picture, std::int64_t time) {
            if (av_new_packet(packet.get(), static_cast<int>(picture.size())) < 0)
                return;
            std::memcpy(packet->data, picture.data(), picture.size());
            packet->pts = packet->dts = time;
            track->take(*packet, unit);
            av_packet_unref(packet.get());
        });
    if (depacketizer == nullptr)
        throw InputFailure{"codec " + request.codec + " can't be decoded"};
    for (;;) {
        const auto [channel, bytes] = socket.receive();
        if (channel == ToInput::packet)
            depacketizer->add(bytes);
    }
}

} // namespace input

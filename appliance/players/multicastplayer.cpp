// multicastplayer: MPEG-2 over RTP from a multicast group, with sound from another.
#include "appliance/players/datagrams.h"
#include "appliance/players/decoder_pipeline.h"
#include "appliance/players/gst_start.h"
#include "appliance/players/player.h"
#include "appliance/players/rtp_decoding.h"
#include "appliance/players/rtp_sound.h"

#include <libcommon/log.h>

#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

namespace player {
namespace {

// The first packets tell what is sent; a description is not at hand here.
class MulticastPictures {
public:
    explicit MulticastPictures(const StreamSink& sink) : sink_(sink) {}

    void take(std::string_view packet) {
        if (decoder_ == nullptr && !begin(packet))
            return;
        if (!decoder_->feed(packet.data(), packet.size()))
            sink_.ended("the decoder failed");
    }

private:
    bool begin(std::string_view packet) {
        const std::string caps = capsOfPacket(packet);
        const RtpChain chain = videoChainOf(encodingNameIn(caps));
        if (chain.elements.empty())
            return false;
        auto decoder = std::make_unique<DecoderPipeline>(std::string(reordering) + " ! " + chain.elements,
                                                         caps, Feed::packets);
        if (loadRtpPlugins(chain) && decoder->start(sink_))
            decoder_ = std::move(decoder);
        else
            sink_.ended("the decoder can't be started");
        return decoder_ != nullptr;
    }

    const StreamSink& sink_;
    std::unique_ptr<DecoderPipeline> decoder_;
};

void receiveSound(const PlayerOptions& options, const StreamSink& sink) {
    const int socket = joinGroup(options.audioHost, options.audioPort);
    if (socket < 0)
        return;
    RtpSound* sound = nullptr; // never destroyed: it prepares in a thread of its own
    receiveDatagrams(socket, [&](std::string_view packet) {
        const std::string caps = sound == nullptr ? capsOfPacket(packet) : "";
        if (!caps.empty())
            sound = new RtpSound(sink, caps);
        if (sound != nullptr)
            sound->feed(packet.data(), packet.size());
    });
}

bool startMulticast(const PlayerOptions& options, const StreamSink& sink, PartFromEncoder& /*part*/) {
    const int socket = joinGroup(options.host, options.port);
    // Everything that the usual streams take is loaded before the first packet is waited for.
    if (socket < 0 || !startGStreamer({"app"}) || !loadRtpPlugins(videoChainOf("MP2T")))
        return false;
    std::thread([socket, &sink] {
        auto& pictures = *new MulticastPictures(sink); // its pipeline runs until the process ends
        receiveDatagrams(socket, [&](std::string_view packet) { pictures.take(packet); });
        sink.ended("the socket broke");
    }).detach();
    if (!options.audioHost.empty())
        std::thread([&options, &sink] { receiveSound(options, sink); }).detach();
    return true;
}

} // namespace
} // namespace player

int main(int argc, char** argv) {
    return player::runPlayer(player::Kind::multicast, argc, argv, player::startMulticast);
}

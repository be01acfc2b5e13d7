// multicastplayer: MPEG-2 over RTP from a multicast group, with sound from another group.
#include "appliance/players/decoding/decoder_pipeline.h"
#include "appliance/players/decoding/gst_start.h"
#include "appliance/players/decoding/rtp_decoding.h"
#include "appliance/players/showing/player.h"
#include "appliance/players/sound/rtp_sound.h"
#include "appliance/streams/datagrams.h"
#include "appliance/streams/rtp_payload.h"

#include <libcommon/log.h>

#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

namespace player {
namespace {

// Decodes the packets. The stream has no description, so its encoding is taken from the first packet.
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
        const std::string caps = streams::capsOfPacket(packet);
        const RtpChain chain = videoChainOf(streams::encodingNameIn(caps));
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

void receiveSound(const PlayerOptions& options, const StreamSink& sink, SoundOutput& output) {
    const int socket = streams::joinGroup(options.audioHost, options.audioPort);
    if (socket < 0)
        return;
    RtpSound* sound = nullptr; // never destroyed: it has its own thread
    streams::receiveDatagrams(socket, [&](std::string_view packet) {
        const std::string caps = sound == nullptr ? streams::capsOfPacket(packet) : "";
        if (!caps.empty())
            sound = new RtpSound(sink, output, caps);
        if (sound != nullptr)
            sound->feed(packet.data(), packet.size());
    });
}

bool startMulticast(const PlayerOptions& options, const StreamSink& sink, Endings& endings) {
    const int socket = streams::joinGroup(options.host, options.port);
    // The plugins of the usual encoding are loaded before the first packet arrives.
    if (socket < 0 || !startGStreamer({"app"}) || !loadRtpPlugins(videoChainOf("MP2T")))
        return false;
    std::thread([socket, &sink] {
        auto& pictures =
            *new MulticastPictures(sink); // never destroyed: its pipeline runs until the process ends
        streams::receiveDatagrams(socket, [&](std::string_view packet) { pictures.take(packet); });
        sink.ended("the socket broke");
    }).detach();
    if (!options.audioHost.empty()) {
        auto* sound = new SoundOutput(sink); // never destroyed: it has its own thread
        endings.sound = [sound] { sound->end(soundEndMs); };
        std::thread([&options, &sink, sound] { receiveSound(options, sink, *sound); }).detach();
    }
    return true;
}

} // namespace
} // namespace player

int main(int argc, char** argv) {
    return player::runPlayer(player::Kind::multicast, argc, argv, player::startMulticast);
}

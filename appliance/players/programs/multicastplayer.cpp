// multicastplayer: MPEG-2 over RTP from a multicast group, with sound from another group.
#include "appliance/players/decoding/module.h"
#include "appliance/players/decoding/packet_pictures.h"
#include "appliance/players/programs/kept_playing.h"
#include "appliance/players/showing/player.h"
#include "appliance/players/sound/picture_sound.h"
#include "appliance/streams/datagrams.h"
#include "appliance/streams/rtp_payload.h"
#include "appliance/streams/stream_description.h"

#include <string>
#include <string_view>
#include <thread>

namespace player {
namespace {

// Decodes the packets. The stream has no description, so its encoding is taken from the first packet.
class MulticastPictures {
public:
    explicit MulticastPictures(const StreamSink& sink) : pictures_(sink) {}

    void take(std::string_view packet) {
        if (!begun_) {
            streams::DescribedStream stream;
            stream.caps = streams::capsOfPacket(packet);
            stream.encodingName = streams::encodingNameIn(stream.caps);
            begun_ = decodesVideo(stream.encodingName);
            if (begun_)
                pictures_.begin(stream, false);
        }
        if (begun_)
            pictures_.feed(packet);
    }

private:
    PacketPictures pictures_;
    bool begun_ = false;
};

void receiveSound(const PlayerOptions& options, PictureSound& sound) {
    const int socket = streams::joinGroup(options.audioHost, options.audioPort);
    if (socket < 0)
        return;
    bool begun = false;
    streams::receiveDatagrams(socket, [&](std::string_view packet) {
        const std::string caps = begun ? "" : streams::capsOfPacket(packet);
        if (!caps.empty()) {
            sound.beginRtp(caps);
            begun = true;
        }
        if (begun)
            sound.feedRtp(packet);
    });
}

bool startMulticast(const PlayerOptions& options, const StreamSink& sink, Endings& endings) {
    prepareGStreamer();
    std::thread([&options, &sink] {
        playKeptPackets(streams::addressOfGroup(options.host, options.port), sink, nullptr, options.verbose);
        const int socket = streams::joinGroup(options.host, options.port);
        if (socket < 0)
            return sink.ended("the group can't be received");
        auto& pictures =
            *new MulticastPictures(sink); // never destroyed: its decoder runs until the process ends
        streams::receiveDatagrams(socket, [&](std::string_view packet) { pictures.take(packet); });
        sink.ended("the socket broke");
    }).detach();
    std::thread([] { makeUnitDecoder(); }).detach(); // while the first packet arrives
    if (!options.audioHost.empty()) {
        auto* sound = new PictureSound(sink); // never destroyed: it has its own threads
        endings.sound = [sound] { sound->end(); };
        std::thread([&options, sound] { receiveSound(options, *sound); }).detach();
    }
    return true;
}

} // namespace
} // namespace player

int main(int argc, char** argv) {
    return player::runPlayer(player::Kind::multicast, argc, argv, player::startMulticast);
}

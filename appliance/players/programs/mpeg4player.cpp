// mpeg4player: MPEG-4 or H.264 over RTSP: unicast, multicast, on the RTSP connection, or tunnelled over HTTP.
#include "appliance/players/decoding/module.h"
#include "appliance/players/decoding/packet_pictures.h"
#include "appliance/players/programs/kept_playing.h"
#include "appliance/players/programs/stream_request.h"
#include "appliance/players/showing/player.h"
#include "appliance/players/sound/picture_sound.h"
#include "appliance/streams/rtsp_stream.h"

#include <libcommon/log.h>

#include <string>
#include <string_view>
#include <thread>

namespace player {
namespace {

// What the session's thread passes on to the picture and the sound.
streams::RtspReceiver receiverFor(PacketPictures& pictures, PictureSound& sound, bool verbose) {
    return {.usesVideo = decodesVideo,
            .usesSound = decodesSound,
            .beginVideo =
                [&pictures](const streams::DescribedStream& stream, bool ordered) {
                    pictures.begin(stream, ordered);
                    return std::string();
                },
            .beginSound = [&sound](const streams::DescribedStream& stream) { sound.beginRtp(stream.caps); },
            .noSound =
                [verbose](const std::string& reason) {
                    if (verbose)
                        logmsg(7, "No sound: %s", reason.c_str());
                },
            .video = [&pictures](std::string_view packet) { return pictures.feed(packet); },
            .sound = [&sound](std::string_view packet) { sound.feedRtp(packet); }};
}

bool startMpeg4(const PlayerOptions& options, const StreamSink& sink, Endings& endings) {
    prepareGStreamer();
    // All are never destroyed, because their threads run until the process ends.
    auto* sound = new PictureSound(sink);
    auto* pictures = new PacketPictures(sink);
    auto* stream =
        new streams::RtspStream(rtspSourceOf(options), receiverFor(*pictures, *sound, options.verbose));
    endings.session = [stream] { stream->end(); };
    endings.sound = [sound] { sound->end(); };
    std::thread([stream, sound, &options, &sink] {
        playKeptPackets(addressOf(rtspSourceOf(options)), sink, sound, options.verbose);
        sink.ended(stream->run());
    }).detach();
    pictures->preload();
    return true;
}

} // namespace
} // namespace player

int main(int argc, char** argv) {
    return player::runPlayer(player::Kind::mpeg4, argc, argv, player::startMpeg4);
}

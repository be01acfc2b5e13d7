// mpeg4player: MPEG-4 or H.264 over RTSP: unicast, multicast, on the RTSP connection, or tunnelled over HTTP.
#include "appliance/players/decoding/gst_start.h"
#include "appliance/players/decoding/rtp_decoding.h"
#include "appliance/players/decoding/rtp_pictures.h"
#include "appliance/players/programs/stream_request.h"
#include "appliance/players/showing/player.h"
#include "appliance/players/sound/rtp_sound.h"
#include "appliance/streams/http_stream.h"
#include "appliance/streams/rtsp_stream.h"

#include <libcommon/log.h>

#include <string>
#include <string_view>
#include <thread>

namespace player {
namespace {

// Decodes the packets of the session.
class Mpeg4Decoding {
public:
    Mpeg4Decoding(const StreamSink& sink, SoundOutput& output, bool verbose)
        : sink_(sink), output_(output), verbose_(verbose) {}

    streams::RtspReceiver receiver() {
        return {
            .usesVideo = [](const std::string& encoding) { return !videoChainOf(encoding).elements.empty(); },
            .usesSound = [](const std::string& encoding) { return !soundChainOf(encoding).elements.empty(); },
            .beginVideo = [this](const streams::DescribedStream& stream,
                                 bool ordered) { return beginVideo(stream, ordered); },
            .beginSound =
                [this](const streams::DescribedStream& stream) {
                    sound_ = new RtpSound(sink_, output_, stream.caps);
                },
            .noSound =
                [this](const std::string& reason) {
                    if (verbose_)
                        logmsg(7, "No sound: %s", reason.c_str());
                },
            .video =
                [this](std::string_view packet) { return pictures_->feed(packet.data(), packet.size()); },
            .sound = [this](std::string_view packet) { sound_->feed(packet.data(), packet.size()); }};
    }

private:
    std::string beginVideo(const streams::DescribedStream& stream, bool ordered) {
        pictures_ = new RtpPictures(videoChainOf(stream.encodingName), stream.caps, ordered);
        return pictures_->start(sink_) ? "" : "the decoder can't be started";
    }

    const StreamSink& sink_;
    SoundOutput& output_;
    const bool verbose_;
    // Never destroyed: they have their own threads.
    RtpPictures* pictures_ = nullptr;
    RtpSound* sound_ = nullptr;
};

bool startMpeg4(const PlayerOptions& options, const StreamSink& sink, Endings& endings) {
    if (!startGStreamer({"app"}))
        return false;
    streams::startHttp();
    // All are never destroyed, because their threads run until the process ends.
    auto* sound = new SoundOutput(sink);
    auto* decoding = new Mpeg4Decoding(sink, *sound, options.verbose);
    auto* stream = new streams::RtspStream(rtspSourceOf(options), decoding->receiver());
    endings.session = [stream] { stream->end(); };
    endings.sound = [sound] { sound->end(soundEndMs); };
    // Load the plugins while the encoder answers.
    std::thread([] { loadRtpPlugins(videoChainOf("MP4V-ES")); }).detach();
    std::thread([stream, &sink] { sink.ended(stream->run()); }).detach();
    return true;
}

} // namespace
} // namespace player

int main(int argc, char** argv) {
    return player::runPlayer(player::Kind::mpeg4, argc, argv, player::startMpeg4);
}

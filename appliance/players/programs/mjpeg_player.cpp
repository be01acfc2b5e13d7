// mjpeg_player: motion JPEG over HTTP, an endless multipart body with one JPEG picture in each part.
#include "appliance/players/decoding/decoder_pipeline.h"
#include "appliance/players/decoding/gst_start.h"
#include "appliance/players/programs/stream_request.h"
#include "appliance/players/showing/player.h"
#include "appliance/players/sound/http_sound.h"
#include "appliance/streams/http_stream.h"
#include "appliance/streams/jpeg_check.h"
#include "appliance/streams/multipart.h"

#include <libcommon/log.h>

#include <memory>
#include <string_view>
#include <thread>

namespace player {
namespace {

void receivePictures(const PlayerOptions& options, const StreamSink& sink, DecoderPipeline& decoder) {
    const auto decode = [&](std::string_view part) {
        if (streams::wholeJpeg(part))
            decoder.feed(part.data(), part.size());
        else if (options.verbose)
            logmsg(7, "A part of %zu bytes is not a whole JPEG picture", part.size());
    };
    std::unique_ptr<streams::MultipartReader> reader;
    const streams::HttpTaker taker{[&](const std::string& contentType) {
                                       reader =
                                           std::make_unique<streams::MultipartReader>(contentType, decode);
                                       return true;
                                   },
                                   [&](const char* bytes, std::size_t count) {
                                       reader->feed(bytes, count);
                                       return true;
                                   }};
    sink.ended(streams::receiveHttp(
        httpSourceOf(options, requestTarget("/vexo-cgi/mjpg/video.cgi", options.streamOptions)), taker));
}

bool startMjpeg(const PlayerOptions& options, const StreamSink& sink, EndSession& endSession) {
    if (!startGStreamer({"app", "jpeg"}))
        return false;
    streams::startHttp();
    // max-errors=-1: broken pictures don't end the stream; if no good one follows, the -r limit ends the player.
    auto* decoder = new DecoderPipeline("jpegdec max-errors=-1", "image/jpeg,framerate=25/1", Feed::pictures);
    if (!decoder->start(sink))
        return false;
    std::thread([&options, &sink, decoder] { receivePictures(options, sink, *decoder); }).detach();
    if (options.audio) {
        auto* sound = new SoundOutput(sink); // never destroyed: it has its own thread
        endSession = [sound] { sound->end(soundEndMs); };
        playHttpSound(httpSourceOf(options, "/vexo-cgi/audio/receive.cgi"), sink, *sound, options.verbose);
    }
    return true;
}

} // namespace
} // namespace player

int main(int argc, char** argv) {
    return player::runPlayer(player::Kind::mjpeg, argc, argv, player::startMjpeg);
}

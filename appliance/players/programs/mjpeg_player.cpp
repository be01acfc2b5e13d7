// mjpeg_player: motion JPEG over HTTP, an endless multipart body with one JPEG picture in each part.
#include "appliance/players/decoding/jpeg_thread.h"
#include "appliance/players/decoding/module.h"
#include "appliance/players/programs/kept_playing.h"
#include "appliance/players/programs/stream_request.h"
#include "appliance/players/showing/player.h"
#include "appliance/players/sound/picture_sound.h"
#include "appliance/streams/http_stream.h"
#include "appliance/streams/jpeg_check.h"
#include "appliance/streams/multipart.h"

#include <libcommon/log.h>

#include <memory>
#include <string>
#include <string_view>
#include <thread>

namespace player {
namespace {

void receivePictures(const PlayerOptions& options, const StreamSink& sink, JpegThread& decoder) {
    const auto decode = [&](std::string_view part) {
        if (streams::wholeJpeg(part))
            decoder.feed(part);
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
    const streams::HttpSource source =
        httpSourceOf(options, requestTarget(streams::picturesPath, options.streamOptions));
    playKeptPictures(addressOf(source, streams::StreamAddress::Kind::mjpeg), decoder, options.verbose);
    const std::string reason = streams::receiveHttp(source, taker);
    decoder.finish();
    sink.ended(reason);
}

bool startMjpeg(const PlayerOptions& options, const StreamSink& sink, Endings& endings) {
    if (options.audio)
        prepareGStreamer();
    auto* decoder = new JpegThread; // never destroyed: it has its own thread
    decoder->start(sink);
    std::thread([&options, &sink, decoder] { receivePictures(options, sink, *decoder); }).detach();
    if (options.audio) {
        auto* sound = new PictureSound(sink); // never destroyed: it has its own threads
        endings.sound = [sound] { sound->end(); };
        sound->playHttp(httpSourceOf(options, "/vexo-cgi/audio/receive.cgi"), options.verbose);
    }
    return true;
}

} // namespace
} // namespace player

int main(int argc, char** argv) {
    return player::runPlayer(player::Kind::mjpeg, argc, argv, player::startMjpeg);
}

// mjpeg_player: motion JPEG over HTTP, an endless multipart body with a JPEG picture a part.
#include "appliance/players/decoder_pipeline.h"
#include "appliance/players/gst_start.h"
#include "appliance/players/http_audio.h"
#include "appliance/players/http_stream.h"
#include "appliance/players/jpeg_check.h"
#include "appliance/players/multipart.h"
#include "appliance/players/player.h"
#include "appliance/players/stream_request.h"

#include <libcommon/log.h>

#include <memory>
#include <string_view>
#include <thread>

namespace player {
namespace {

void receivePictures(const PlayerOptions& options, const StreamSink& sink, DecoderPipeline& decoder) {
    const auto decode = [&](std::string_view part) {
        if (wholeJpeg(part))
            decoder.feed(part.data(), part.size());
        else if (options.verbose)
            logmsg(7, "A part of %zu bytes is no whole JPEG picture", part.size());
    };
    std::unique_ptr<MultipartReader> reader;
    const HttpTaker taker{[&](const std::string& contentType) {
                              reader = std::make_unique<MultipartReader>(contentType, decode);
                              return true;
                          },
                          [&](const char* bytes, std::size_t count) {
                              reader->feed(bytes, count);
                              return true;
                          }};
    const std::string reason = receiveHttp(
        requestOf(options, requestTarget("/vexo-cgi/mjpg/video.cgi", options.streamOptions)), taker);
    sink.ended(reason);
}

bool startMjpeg(const PlayerOptions& options, const StreamSink& sink, PartFromEncoder& /*part*/) {
    if (!startGStreamer({"app", "jpeg"}))
        return false;
    startHttp();
    // max-errors: a picture that can't be decoded is no reason to end; many of them are a picture that stands
    // still.
    auto* decoder = new DecoderPipeline("jpegdec max-errors=-1", "image/jpeg,framerate=25/1", Feed::pictures);
    if (!decoder->start(sink))
        return false;
    std::thread([&options, &sink, decoder] { receivePictures(options, sink, *decoder); }).detach();
    if (options.audio)
        playHttpAudio(options, sink);
    return true;
}

} // namespace
} // namespace player

int main(int argc, char** argv) {
    return player::runPlayer(player::Kind::mjpeg, argc, argv, player::startMjpeg);
}

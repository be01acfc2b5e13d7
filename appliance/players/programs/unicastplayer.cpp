// unicastplayer: MPEG-2 over HTTP, as an elementary, program or transport stream.
#include "appliance/players/decoding/byte_pictures.h"
#include "appliance/players/programs/kept_playing.h"
#include "appliance/players/programs/stream_request.h"
#include "appliance/players/showing/player.h"
#include "appliance/streams/http_stream.h"

#include <string>
#include <thread>

namespace player {
namespace {

bool startUnicast(const PlayerOptions& options, const StreamSink& sink, Endings& /*endings*/) {
    auto* pictures = new BytePictures(sink); // never destroyed: it has its own thread
    std::thread([&options, &sink, pictures] {
        const streams::HttpTaker taker{
            [](const std::string& /*contentType*/) { return true; },
            [pictures](const char* bytes, std::size_t count) { return pictures->feed(bytes, count); }};
        const streams::HttpSource source =
            httpSourceOf(options, requestTarget(streams::mpeg2Path, options.streamOptions));
        playKeptBytes(addressOf(source, streams::StreamAddress::Kind::mpeg2), sink, options.verbose);
        const std::string reason = streams::receiveHttp(source, taker);
        pictures->finish();
        sink.ended(reason);
    }).detach();
    return true;
}

} // namespace
} // namespace player

int main(int argc, char** argv) {
    return player::runPlayer(player::Kind::unicast, argc, argv, player::startUnicast);
}

// unicastplayer: MPEG-2 over HTTP, as an elementary, program or transport stream.
#include "appliance/players/decoding/module.h"
#include "appliance/players/programs/stream_request.h"
#include "appliance/players/showing/player.h"
#include "appliance/streams/http_stream.h"
#include "appliance/streams/mpeg2_container.h"

#include <string>
#include <thread>

namespace player {
namespace {

// Finds out the container from the first bytes, then decodes the stream.
class Mpeg2Decoding {
public:
    explicit Mpeg2Decoding(const StreamSink& sink) : sink_(sink) {}

    bool take(const char* bytes, std::size_t count) {
        if (decoder_ != nullptr)
            return decoder_->feed(bytes, count);
        begin_.append(bytes, count);
        if (begin_.size() < streams::containerBytes)
            return true;
        GStreamerModule* gstreamer = loadGStreamer(); // what arrives meanwhile waits in the connection
        decoder_ =
            gstreamer == nullptr ? nullptr : gstreamer->decodeMpeg2(streams::containerOf(begin_), sink_);
        return decoder_ != nullptr && decoder_->feed(begin_.data(), begin_.size());
    }

private:
    const StreamSink& sink_;
    std::string begin_;
    StreamDecoder* decoder_ = nullptr;
};

bool startUnicast(const PlayerOptions& options, const StreamSink& sink, Endings& /*endings*/) {
    prepareGStreamer();
    std::thread([] { loadGStreamer(); }).detach(); // while the encoder answers
    std::thread([&options, &sink] {
        auto& decoding = *new Mpeg2Decoding(sink); // never destroyed: its decoder runs until the process ends
        const streams::HttpTaker taker{
            [](const std::string& /*contentType*/) { return true; },
            [&](const char* bytes, std::size_t count) { return decoding.take(bytes, count); }};
        sink.ended(streams::receiveHttp(
            httpSourceOf(options, requestTarget("/vexo-cgi/mpeg2/video.cgi", options.streamOptions)), taker));
    }).detach();
    return true;
}

} // namespace
} // namespace player

int main(int argc, char** argv) {
    return player::runPlayer(player::Kind::unicast, argc, argv, player::startUnicast);
}

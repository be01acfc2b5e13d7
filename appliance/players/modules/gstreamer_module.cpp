// The module with GStreamer.
#include "appliance/players/decoding/decoder_pipeline.h"
#include "appliance/players/decoding/gst_start.h"
#include "appliance/players/decoding/module.h"
#include "appliance/players/decoding/rtp_decoding.h"
#include "appliance/players/modules/exported.h"
#include "appliance/players/sound/http_sound.h"
#include "appliance/players/sound/rtp_sound.h"

#include <memory>
#include <type_traits>

namespace player {
namespace {

class PipelineDecoder : public StreamDecoder {
public:
    PipelineDecoder(const std::string& elements, const std::string& caps, Feed feed)
        : pipeline_(elements, caps, feed) {}
    bool start(const StreamSink& sink) { return pipeline_.start(sink); }
    bool feed(const char* bytes, std::size_t count) override { return pipeline_.feed(bytes, count); }

private:
    DecoderPipeline pipeline_;
};

class Sound : public SoundPlayer {
public:
    explicit Sound(const StreamSink& sink) : sink_(sink), output_(sink) {}

    void playHttp(const streams::HttpSource& source, bool verbose) override {
        playHttpSound(source, sink_, output_, verbose);
    }
    void beginRtp(const std::string& caps) override { rtp_ = std::make_unique<RtpSound>(output_, caps); }
    void feedRtp(const char* packet, std::size_t bytes) override { rtp_->feed(packet, bytes); }
    void end(int patienceMs) override { output_.end(patienceMs); }

private:
    const StreamSink& sink_;
    SoundOutput output_;
    std::unique_ptr<RtpSound> rtp_;
};

class Module : public GStreamerModule {
public:
    StreamDecoder* decodeRtp(const std::string& encodingName, const std::string& caps,
                             const StreamSink& sink) override {
        const RtpChain chain = videoChainOf(encodingName);
        return loadRtpPlugins(chain) ? decode(chain.elements, caps, Feed::packets, sink) : nullptr;
    }

    SoundPlayer* playSound(const StreamSink& sink) override { return new Sound(sink); }

private:
    // Null when the pipeline can't be made.
    static StreamDecoder* decode(const std::string& elements, const std::string& caps, Feed feed,
                                 const StreamSink& sink) {
        auto* decoder =
            new PipelineDecoder(elements, caps, feed); // never destroyed: it runs until the process ends
        return decoder->start(sink) ? decoder : nullptr;
    }
};

} // namespace
} // namespace player

EXPORTED player::GStreamerModule* playerStartGStreamer(const char* pluginFolders) {
    return player::startGStreamer(pluginFolders, {"app"}) ? new player::Module : nullptr;
}

static_assert(std::is_same_v<decltype(playerStartGStreamer), player::StartGStreamer>);

#include "appliance/players/sound/http_sound.h"

#include "appliance/players/decoding/decoder_pipeline.h"
#include "appliance/players/decoding/gst_start.h"

#include <libcommon/log.h>

#include <chrono>
#include <gst/app/gstappsrc.h>
#include <memory>
#include <strings.h>
#include <thread>

namespace player {
namespace {

bool isType(const std::string& contentType, const char* known) {
    const std::string type = contentType.substr(0, contentType.find_first_of("; \t"));
    return strcasecmp(type.c_str(), known) == 0;
}

// How often a player whose sound is turned off looks whether it is on again.
constexpr std::chrono::milliseconds pollTime{100};

// A pipeline that decodes sound. It is apart from that of the picture, so that its failure does not end the picture.
class SoundPipeline {
public:
    SoundPipeline(GstElement* pipeline, const SoundChain& chain, SoundOutput& output)
        : pipeline_(pipeline), source_(gst_bin_get_by_name(GST_BIN(pipeline), "source")) {
        GstCaps* caps = gst_caps_from_string(chain.caps.c_str());
        g_object_set(source_, "caps", caps, "format", GST_FORMAT_TIME, "do-timestamp", TRUE, nullptr);
        gst_caps_unref(caps);
        output.takeFrom(pipeline_);
    }
    SoundPipeline(const SoundPipeline&) = delete;
    SoundPipeline& operator=(const SoundPipeline&) = delete;
    ~SoundPipeline() {
        gst_element_set_state(pipeline_, GST_STATE_NULL);
        gst_object_unref(source_);
        gst_object_unref(pipeline_);
    }
    bool play() { return gst_element_set_state(pipeline_, GST_STATE_PLAYING) != GST_STATE_CHANGE_FAILURE; }
    void feed(const char* bytes, std::size_t count) {
        gst_app_src_push_buffer(GST_APP_SRC(source_), gst_buffer_new_memdup(bytes, count));
    }

private:
    GstElement* pipeline_;
    GstElement* source_;
};

// Null with a log line when the sound can't be decoded.
std::unique_ptr<SoundPipeline> startSound(const SoundChain& chain, SoundOutput& output) {
    // libav is large and rarely needed here.
    if (chain.elements.find("avdec") != std::string::npos && !loadPlugins({"libav"}))
        return nullptr;
    GstElement* pipeline =
        makePipeline("appsrc name=source is-live=true max-bytes=65536 leaky-type=downstream ! " +
                     chain.elements + " ! " + soundSink);
    if (pipeline == nullptr)
        return nullptr;
    auto sound = std::make_unique<SoundPipeline>(pipeline, chain, output);
    if (sound->play())
        return sound;
    logmsg(6, "Sound can't be played");
    return nullptr;
}

// Receives and decodes until the stream ends or the sound is no longer wanted. Returns the reason, for the log.
std::string receiveSound(const streams::HttpSource& from, SoundOutput& output) {
    std::unique_ptr<SoundPipeline> sound;
    const streams::HttpTaker taker{[&](const std::string& contentType) {
                                       const SoundChain chain = soundChainOfType(contentType);
                                       if (chain.elements.empty())
                                           logmsg(6, "Sound of the type \"%.100s\" can't be played",
                                                  contentType.c_str());
                                       else
                                           sound = startSound(chain, output);
                                       return sound != nullptr;
                                   },
                                   [&](const char* bytes, std::size_t count) {
                                       sound->feed(bytes, count);
                                       return output.wanted();
                                   }};
    return receiveHttp(from, taker);
}

} // namespace

SoundChain soundChainOfType(const std::string& contentType) {
    if (isType(contentType, "audio/basic") || isType(contentType, "audio/x-mulaw"))
        return {"audio/x-mulaw,rate=8000,channels=1", "mulawdec"};
    if (isType(contentType, "audio/x-alaw"))
        return {"audio/x-alaw,rate=8000,channels=1", "alawdec"};
    if (isType(contentType, "audio/32kadpcm") || isType(contentType, "audio/g726-32"))
        return {"audio/x-adpcm,layout=(string)g726,bitrate=32000,rate=8000,channels=1", "avdec_g726"};
    if (isType(contentType, "audio/mpeg"))
        return {"audio/mpeg,mpegversion=1", "mpegaudioparse ! mpg123audiodec"};
    if (isType(contentType, "audio/aac") || isType(contentType, "audio/aacp"))
        return {"audio/mpeg,mpegversion=4,stream-format=adts", "aacparse ! avdec_aac"};
    if (isType(contentType, "audio/wav") || isType(contentType, "audio/x-wav"))
        return {"audio/x-wav", "wavparse"};
    return {};
}

// The sound may be turned off and on again while the picture is shown. A stream that failed is not asked for again.
void playHttpSound(const streams::HttpSource& source, const StreamSink& sink, SoundOutput& output,
                   bool verbose) {
    if (!output.start() || !loadPlugins({"mulaw", "alaw", "audioparsers", "mpg123", "wavparse"}))
        return;
    while (sink.showing()) {
        if (!output.wanted()) {
            std::this_thread::sleep_for(pollTime);
            continue;
        }
        const std::string reason = receiveSound(source, output);
        if (verbose)
            logmsg(7, "Sound ended: %s", reason.c_str());
        if (output.wanted())
            return;
    }
}

} // namespace player

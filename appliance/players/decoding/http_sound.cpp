#include "appliance/players/decoding/http_sound.h"

#include "appliance/players/decoding/decoder_pipeline.h"
#include "appliance/players/decoding/gst_start.h"

#include <libcommon/log.h>

#include <gst/app/gstappsrc.h>
#include <strings.h>
#include <thread>

namespace player {
namespace {

bool isType(const std::string& contentType, const char* known) {
    const std::string type = contentType.substr(0, contentType.find_first_of("; \t"));
    return strcasecmp(type.c_str(), known) == 0;
}

// Sound has its own pipeline, so that its failure does not end the picture.
GstElement* startSound(const SoundChain& chain) {
    // libav is large and rarely needed here.
    if (chain.elements.find("avdec") != std::string::npos && !loadPlugins({"libav"}))
        return nullptr;
    GstElement* pipeline =
        makePipeline("appsrc name=source is-live=true max-bytes=65536 leaky-type=downstream ! " +
                     chain.elements + " ! audioconvert ! audioresample ! " + soundSink);
    if (pipeline == nullptr)
        return nullptr;
    GstElement* source = gst_bin_get_by_name(GST_BIN(pipeline), "source");
    GstCaps* caps = gst_caps_from_string(chain.caps.c_str());
    g_object_set(source, "caps", caps, "format", GST_FORMAT_TIME, "do-timestamp", TRUE, nullptr);
    gst_caps_unref(caps);
    if (gst_element_set_state(pipeline, GST_STATE_PLAYING) != GST_STATE_CHANGE_FAILURE)
        return source;
    logmsg(6, "Sound can't be played");
    return nullptr;
}

void receiveSound(const streams::HttpSource& from, const StreamSink& sink, bool verbose) {
    // Loading the sound plugins earlier would delay the first picture.
    sink.awaitShowing();
    if (!loadSoundPlugins())
        return;
    GstElement* source = nullptr;
    const streams::HttpTaker taker{
        [&](const std::string& contentType) {
            const SoundChain chain = soundChainOfType(contentType);
            if (chain.elements.empty())
                logmsg(6, "Sound of the type \"%.100s\" can't be played", contentType.c_str());
            else
                source = startSound(chain);
            return source != nullptr;
        },
        [&](const char* bytes, std::size_t count) {
            gst_app_src_push_buffer(GST_APP_SRC(source), gst_buffer_new_memdup(bytes, count));
            return sink.showing();
        }};
    const std::string reason = receiveHttp(from, taker);
    if (verbose)
        logmsg(7, "Sound ended: %s", reason.c_str());
}

} // namespace

const char* const soundSink = "autoaudiosink";

bool loadSoundPlugins() {
    loadWhereInstalled({"pulseaudio", "alsa"});
    return loadPlugins({"coreelements", "audioconvert", "audioresample", "autodetect", "mulaw", "alaw",
                        "audioparsers", "mpg123", "wavparse"});
}

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

void playHttpSound(const streams::HttpSource& source, const StreamSink& sink, bool verbose) {
    std::thread([source, &sink, verbose] { receiveSound(source, sink, verbose); }).detach();
}

} // namespace player

#include "appliance/players/sound/rtp_sound.h"

#include "appliance/players/decoding/decoder_pipeline.h"
#include "appliance/players/decoding/gst_start.h"
#include "appliance/players/decoding/rtp_decoding.h"
#include "appliance/streams/rtp_payload.h"

#include <libcommon/log.h>

#include <gst/app/gstappsrc.h>

namespace player {

RtpSound::RtpSound(SoundOutput& output, const std::string& caps) : output_(output) {
    prepare(caps);
}

void RtpSound::prepare(const std::string& capsText) {
    const std::string name = streams::encodingNameIn(capsText);
    const RtpChain chain = soundChainOf(name);
    if (chain.elements.empty()) {
        logmsg(6, "Sound in the encoding \"%s\" can't be played", name.c_str());
        return;
    }
    if (!loadPlugins({"rtpmanager"}) || !loadRtpPlugins(chain) || !output_.start())
        return;
    GstElement* pipeline = makePipeline(std::string("appsrc name=source is-live=true ! ") + reordering +
                                        " ! " + chain.elements + " ! " + soundSink);
    if (pipeline == nullptr)
        return;
    GstElement* source = gst_bin_get_by_name(GST_BIN(pipeline), "source");
    GstCaps* caps = gst_caps_from_string(capsText.c_str());
    g_object_set(source, "caps", caps, nullptr);
    gst_caps_unref(caps);
    configureFeed(source, Feed::packets);
    output_.takeFrom(pipeline);
    if (gst_element_set_state(pipeline, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE)
        logmsg(6, "Sound can't be played");
    else
        source_ = source;
}

void RtpSound::feed(const void* packet, std::size_t bytes) {
    if (source_ != nullptr && output_.playing())
        gst_app_src_push_buffer(GST_APP_SRC(source_), gst_buffer_new_memdup(packet, bytes));
}

} // namespace player

#include "appliance/players/decoding/decoder_pipeline.h"

#include "appliance/players/decoding/sample_pictures.h"

#include <libcommon/log.h>

#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <memory>
#include <utility>

namespace player {
namespace {

constexpr guint64 queuedPictures = 2;
constexpr guint64 queuedPackets = 4096;
constexpr guint64 queuedBytes = 1024 * 1024;
constexpr int dropOldest = GST_APP_LEAKY_TYPE_DOWNSTREAM;

GstFlowReturn onSample(GstAppSink* appSink, void* take) {
    GstSample* sample = gst_app_sink_pull_sample(appSink);
    if (sample == nullptr)
        return GST_FLOW_EOS;
    (*static_cast<SampleTaker*>(take))(sample);
    gst_sample_unref(sample);
    return GST_FLOW_OK;
}

// Called on the thread that posts the message.
GstBusSyncReply onMessage(GstBus* /*bus*/, GstMessage* message, void* sink) {
    const auto& stream = *static_cast<const StreamSink*>(sink);
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
        GError* error = nullptr;
        gst_message_parse_error(message, &error, nullptr);
        stream.ended(std::string(GST_MESSAGE_SRC_NAME(message)) + ": " + error->message);
        g_error_free(error);
    } else if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS) {
        stream.ended("the encoder ended the stream");
    }
    gst_message_unref(message);
    return GST_BUS_DROP;
}

GstPadProbeReturn untilKeyPicture(GstPad* /*pad*/, GstPadProbeInfo* info, void* /*nothing*/) {
    const bool key = !GST_BUFFER_FLAG_IS_SET(GST_PAD_PROBE_INFO_BUFFER(info), GST_BUFFER_FLAG_DELTA_UNIT);
    return key ? GST_PAD_PROBE_REMOVE : GST_PAD_PROBE_DROP;
}

void awaitKeyPicture(GstElement* pipeline) {
    GstElement* decoder = gst_bin_get_by_name(GST_BIN(pipeline), "decoder");
    if (decoder == nullptr)
        return;
    GstPad* pad = gst_element_get_static_pad(decoder, "sink");
    gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, &untilKeyPicture, nullptr, nullptr);
    gst_object_unref(pad);
    gst_object_unref(decoder);
}

} // namespace

void configureFeed(GstElement* source, Feed feed) {
    switch (feed) {
    case Feed::pictures:
    case Feed::packets:
        g_object_set(source, "max-buffers", feed == Feed::pictures ? queuedPictures : queuedPackets,
                     "max-bytes", guint64{0}, "leaky-type", dropOldest, "format", GST_FORMAT_TIME,
                     "do-timestamp", TRUE, nullptr);
        break;
    case Feed::bytes:
        g_object_set(source, "max-bytes", queuedBytes, "block", TRUE, nullptr);
        break;
    }
}

const char* const pictureSink =
    "appsink name=pictures sync=false max-buffers=1 drop=true enable-last-sample=false";

void deliver(GstElement* pipeline, const StreamSink& sink, SampleTaker take) {
    GstElement* pictures = gst_bin_get_by_name(GST_BIN(pipeline), "pictures");
    GstAppSinkCallbacks callbacks{};
    callbacks.new_sample = &onSample;
    gst_app_sink_set_callbacks(GST_APP_SINK(pictures), &callbacks, new SampleTaker(std::move(take)),
                               [](void* taker) { delete static_cast<SampleTaker*>(taker); });
    gst_object_unref(pictures);
    GstBus* bus = gst_element_get_bus(pipeline);
    gst_bus_set_sync_handler(bus, &onMessage, const_cast<StreamSink*>(&sink), nullptr);
    gst_object_unref(bus);
}

GstElement* makePipeline(const std::string& description) {
    GError* error = nullptr;
    GstElement* pipeline =
        gst_parse_launch_full(description.c_str(), nullptr, GST_PARSE_FLAG_FATAL_ERRORS, &error);
    if (error != nullptr) {
        logmsg(3, "The pipeline can't be made: %s", error->message);
        g_error_free(error);
    }
    return pipeline;
}

DecoderPipeline::DecoderPipeline(std::string description, std::string caps, Feed feed)
    : description_(std::move(description)), caps_(std::move(caps)), feed_(feed) {}

bool DecoderPipeline::start(const StreamSink& sink) {
    const auto pictures = std::make_shared<SamplePictures>();
    return start(sink, [pictures, &sink](GstSample* sample) { pictures->take(sample, sink.picture); });
}

bool DecoderPipeline::start(const StreamSink& sink, SampleTaker take) {
    pipeline_ = makePipeline("appsrc name=source is-live=true ! " + description_ + " ! " + pictureSink);
    if (pipeline_ == nullptr)
        return false;
    source_ = gst_bin_get_by_name(GST_BIN(pipeline_), "source");
    GstCaps* caps = gst_caps_from_string(caps_.c_str());
    g_object_set(source_, "caps", caps, nullptr);
    gst_caps_unref(caps);
    configureFeed(source_, feed_);
    awaitKeyPicture(pipeline_);
    deliver(pipeline_, sink, std::move(take));
    if (gst_element_set_state(pipeline_, GST_STATE_PLAYING) != GST_STATE_CHANGE_FAILURE)
        return true;
    logmsg(3, "The decoder can't be started");
    return false;
}

bool DecoderPipeline::feed(const void* bytes, std::size_t count) {
    GstBuffer* buffer = gst_buffer_new_memdup(bytes, count);
    return gst_app_src_push_buffer(GST_APP_SRC(source_), buffer) == GST_FLOW_OK;
}

} // namespace player

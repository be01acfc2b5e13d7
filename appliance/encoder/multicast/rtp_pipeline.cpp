#include "appliance/encoder/multicast/rtp_pipeline.h"

#include "appliance/encoder/base/gstreamer.h"
#include "appliance/encoder/base/log.h"

namespace {

constexpr guint64 reportInterval = GST_SECOND;
constexpr double reportBandwidth = 64000; // bits a second: enough, so that GStreamer keeps to the interval
constexpr GstClockTime goodbyeTime = 500 * GST_MSECOND;

std::string sink(const std::string& localAddress, const MulticastPlace& place, int portOffset) {
    // The bound address selects the interface. loop=true, because players on this machine receive it too.
    return "udpsink bind-address=" + localAddress + " host=" + place.group +
           " port=" + std::to_string(place.port + portOffset) +
           " auto-multicast=false ttl-mc=1 loop=true sync=false async=false";
}

void setReports(GstElement* pipeline) {
    GstElement* bin = gst_bin_get_by_name(GST_BIN(pipeline), "bin");
    GObject* session = nullptr;
    g_signal_emit_by_name(bin, "get-internal-session", 0, &session);
    if (session != nullptr) {
        g_object_set(session, "bandwidth", reportBandwidth, "rtcp-min-interval", reportInterval, nullptr);
        g_object_unref(session);
    }
    gst_object_unref(bin);
}

} // namespace

std::unique_ptr<RtpPipeline> RtpPipeline::start(const std::string& packets, const std::string& localAddress,
                                                const MulticastPlace& place) {
    startGStreamer();
    const std::string text = packets + " ! bin.send_rtp_sink_0 rtpbin name=bin bin.send_rtp_src_0 ! " +
                             sink(localAddress, place, 0) + " bin.send_rtcp_src_0 ! " +
                             sink(localAddress, place, 1);
    GError* error = nullptr;
    GstElement* pipeline = gst_parse_launch(text.c_str(), &error);
    if (error != nullptr) {
        logLine("the multicast to " + place.group + " cannot be built: " + error->message);
        g_error_free(error);
        g_clear_object(&pipeline);
        return nullptr;
    }
    setReports(pipeline);
    std::unique_ptr<RtpPipeline> made(new RtpPipeline(pipeline));
    if (gst_element_set_state(pipeline, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
        logLine("the multicast to " + place.group + " cannot be sent from " + localAddress);
        return nullptr;
    }
    return made;
}

RtpPipeline::~RtpPipeline() {
    // The RTP session sends its goodbye at the end of the stream.
    gst_element_send_event(pipeline_, gst_event_new_eos());
    GstBus* bus = gst_element_get_bus(pipeline_);
    GstMessage* end = gst_bus_timed_pop_filtered(
        bus, goodbyeTime, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    if (end != nullptr)
        gst_message_unref(end);
    gst_object_unref(bus);
    gst_element_set_state(pipeline_, GST_STATE_NULL);
    gst_object_unref(pipeline_);
}

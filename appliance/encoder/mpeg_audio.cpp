#include "appliance/encoder/mpeg_audio.h"

#include "appliance/encoder/gst_source.h"
#include "appliance/encoder/log.h"
#include "appliance/encoder/rtp.h"
#include "appliance/encoder/udp_output.h"

#include <gst/app/gstappsink.h>
#include <gst/gst.h>

namespace {

constexpr const char* encoder = "avenc_mp2";
constexpr std::int64_t frameTime = 24000000; // nanoseconds: 1152 samples at 48 kHz
constexpr int framesPerReport = 20;
constexpr GstClockTime patience = 250 * GST_MSECOND;

} // namespace

MpegAudioSender::MpegAudioSender(std::string localAddress, MulticastPlace place)
    : localAddress_(std::move(localAddress)), place_(std::move(place)), thread_(&MpegAudioSender::run, this) {
}

MpegAudioSender::~MpegAudioSender() {
    stopping_ = true;
    thread_.join();
}

std::string MpegAudioSender::mistake() {
    startGStreamer();
    GstElementFactory* factory = gst_element_factory_find(encoder);
    if (factory == nullptr)
        return std::string("GStreamer has no ") + encoder + " here";
    gst_object_unref(factory);
    return {};
}

void MpegAudioSender::run() {
    startGStreamer();
    const auto output = UdpOutput::open(localAddress_, place_.group, place_.port);
    GstElement* pipeline = gst_parse_launch("audiotestsrc is-live=true wave=ticks ! "
                                            "audio/x-raw,rate=48000,channels=1 ! avenc_mp2 bitrate=64000 ! "
                                            "appsink name=out sync=false",
                                            nullptr);
    if (!output || pipeline == nullptr) {
        logLine("there will be no multicast sound");
        if (pipeline != nullptr)
            gst_object_unref(pipeline);
        return;
    }
    GstElement* out = gst_bin_get_by_name(GST_BIN(pipeline), "out");
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    RtpStream rtp(mpegAudioPayloadType);
    const std::int64_t start = std::chrono::steady_clock::now().time_since_epoch().count();
    for (std::int64_t frame = 0; !stopping_;) {
        GstSample* sample = gst_app_sink_try_pull_sample(GST_APP_SINK(out), patience);
        if (sample == nullptr)
            continue;
        GstMapInfo map;
        if (gst_buffer_map(gst_sample_get_buffer(sample), &map, GST_MAP_READ) != FALSE) {
            // Four zero bytes: a whole frame begins at the packet's start.
            const std::string payload =
                std::string(4, '\0') + std::string(reinterpret_cast<const char*>(map.data), map.size);
            gst_buffer_unmap(gst_sample_get_buffer(sample), &map);
            output->sendPackets({rtp.packet(payload, frame == 0, start + frame * frameTime)});
            if (frame % framesPerReport == 0)
                output->sendReport(rtp.report(false));
            ++frame;
        }
        gst_sample_unref(sample);
    }
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(out);
    gst_object_unref(pipeline);
}

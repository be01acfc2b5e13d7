// GStreamer's rtspsrc, an independent client, plays every transport.
#include "appliance/encoder/base/gstreamer.h"
#include "appliance/encoder/testing/test_client.h"
#include "tests/fakes/network_namespace.h"

#include <gio/gio.h>
#include <gmock/gmock.h>
#include <gst/app/gstappsink.h>
#include <gst/gst.h>
#include <gtest/gtest.h>

namespace {

constexpr GstClockTime slice = 100 * GST_MSECOND;
constexpr int slices = 100;

// Plays until `wanted` pictures were decoded, or none comes for ten seconds. Returns their number.
int play(const std::string& url, const std::string& options, const char* codec, int wanted = 30) {
    startGStreamer();
    const std::string text =
        "rtspsrc location=" + url + " latency=100 " + options + " ! rtp" +
        (std::string(codec) == "h264" ? "h264depay ! avdec_h264" : "mp4vdepay ! avdec_mpeg4") +
        " ! appsink name=out sync=false";
    GstElement* pipeline = gst_parse_launch(text.c_str(), nullptr);
    GstElement* out = gst_bin_get_by_name(GST_BIN(pipeline), "out");
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    GstBus* bus = gst_element_get_bus(pipeline);
    int pictures = 0;
    for (int waited = 0; pictures < wanted && waited < slices;) {
        if (GstMessage* error = gst_bus_pop_filtered(bus, GST_MESSAGE_ERROR)) {
            gst_message_unref(error);
            break;
        }
        GstSample* sample = gst_app_sink_try_pull_sample(GST_APP_SINK(out), slice);
        waited = sample == nullptr ? waited + 1 : 0;
        pictures += sample == nullptr ? 0 : 1;
        if (sample != nullptr)
            gst_sample_unref(sample);
    }
    gst_object_unref(bus);
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(out);
    gst_object_unref(pipeline);
    return pictures;
}

std::string urlOf(std::uint16_t port, const char* scheme = "rtsp") {
    return std::string(scheme) + "://127.0.0.1:" + std::to_string(port) + "/mpeg4/1/media.orv";
}

} // namespace

TEST(RtspSrc, PlaysEveryTransport) {
    for (const char* codec : {"mpeg4", "h264"}) {
        const TestEncoder encoder({"--kinds", "rtsp-unicast,rtsp-tcp,rtsp-http", "--codec", codec});
        EXPECT_EQ(play(urlOf(encoder.rtsp()), "protocols=udp", codec), 30);
        EXPECT_EQ(play(urlOf(encoder.rtsp()), "protocols=tcp", codec), 30);
        EXPECT_EQ(play(urlOf(encoder.http(), "rtsph"), "protocols=tcp", codec), 30);
        EXPECT_EQ(play(urlOf(encoder.http()), "protocols=tcp", codec), 30) << "RTSP on the HTTP port";
    }
}

TEST(RtspSrc, PlaysWithCredentials) {
    const TestEncoder encoder({"--kinds", "rtsp-tcp,rtsp-http", "--user", "joe", "--password", "pw"});
    const std::string who = "protocols=tcp user-id=joe user-pw=pw";
    EXPECT_EQ(play(urlOf(encoder.rtsp()), who, "mpeg4"), 30);
    EXPECT_EQ(play(urlOf(encoder.http(), "rtsph"), who, "mpeg4"), 30);
    EXPECT_EQ(play(urlOf(encoder.rtsp()), "protocols=tcp user-id=joe user-pw=no", "mpeg4"), 0);
}

TEST(RtspSrc, PlaysATunnelUnderTls) {
    startGStreamer();
    if (!g_tls_backend_supports_tls(g_tls_backend_get_default()))
        GTEST_SKIP() << "GLib has no TLS here (package glib-networking)";
    const TestEncoder encoder({"--https", "--kinds", "rtsp-http"});
    EXPECT_EQ(play(urlOf(encoder.https(), "rtspsh"), "protocols=tcp tls-validation-flags=0", "mpeg4"), 30);
}

TEST(RtspSrc, PlaysAMulticast) {
    if (const std::string reason = enterNetworkNamespace(); !reason.empty())
        GTEST_SKIP() << reason;
    const TestEncoder encoder({"--kinds", "rtsp-multicast"});
    EXPECT_EQ(play(urlOf(encoder.rtsp()), "protocols=udp-mcast", "mpeg4"), 30);
}

// Sends one stream as RTP, with RTCP sender reports, to a multicast group. GStreamer packs and sends.
#pragma once

#include "appliance/encoder/multicast/multicast_place.h"

#include <gst/gst.h>
#include <memory>
#include <string>

class RtpPipeline {
public:
    // `packets` describes the elements that make RTP packets, as for gst-launch-1.0. The packets leave through the
    // interface of `localAddress`, with a time to live of 1. Null on failure, which is logged.
    static std::unique_ptr<RtpPipeline> start(const std::string& packets, const std::string& localAddress,
                                              const MulticastPlace& place);
    // Says goodbye to the receivers.
    ~RtpPipeline();
    RtpPipeline(const RtpPipeline&) = delete;
    RtpPipeline& operator=(const RtpPipeline&) = delete;

    // The element of that name in `packets`. The caller releases it.
    GstElement* element(const char* name) const { return gst_bin_get_by_name(GST_BIN(pipeline_), name); }

private:
    explicit RtpPipeline(GstElement* pipeline) : pipeline_(pipeline) {}

    GstElement* const pipeline_;
};

#include "bench/screen/key_pictures.h"

#include "bench/screen/pixels.h"

#include <cmath>
#include <stdexcept>

namespace bench {

KeyPictures::KeyPictures(const std::string& pipeline) {
    gst_init(nullptr, nullptr);
    GError* error = nullptr;
    pipeline_ = gst_parse_launch((pipeline + " ! fakesink name=end sync=false").c_str(), &error);
    if (error != nullptr) {
        const std::string reason = error->message;
        g_error_free(error);
        throw std::runtime_error("no client for the key pictures: " + reason);
    }
    GstElement* sink = gst_bin_get_by_name(GST_BIN(pipeline_), "end");
    GstPad* pad = gst_element_get_static_pad(sink, "sink");
    gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, &KeyPictures::note, this, nullptr);
    gst_object_unref(pad);
    gst_object_unref(sink);
    gst_element_set_state(pipeline_, GST_STATE_PLAYING);
}

KeyPictures::~KeyPictures() {
    gst_element_set_state(pipeline_, GST_STATE_NULL);
    gst_object_unref(pipeline_);
}

GstPadProbeReturn KeyPictures::note(GstPad* /*pad*/, GstPadProbeInfo* info, gpointer self) {
    if (!GST_BUFFER_FLAG_IS_SET(GST_PAD_PROBE_INFO_BUFFER(info), GST_BUFFER_FLAG_DELTA_UNIT))
        static_cast<KeyPictures*>(self)->last_ = clockMs();
    return GST_PAD_PROBE_OK;
}

std::optional<double> KeyPictures::last() const {
    const double time = last_;
    return time > 0 ? std::optional(time) : std::nullopt;
}

double untilPhase(double now, double last, double period, double wanted, double least) {
    const double earliest = now + least;
    const double periods = std::ceil((earliest - last - wanted) / period);
    return last + wanted + periods * period - now;
}

} // namespace bench

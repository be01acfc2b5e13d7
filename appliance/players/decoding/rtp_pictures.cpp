#include "appliance/players/decoding/rtp_pictures.h"

namespace player {
namespace {

std::string elementsOf(const RtpChain& chain, bool ordered) {
    return (ordered ? "" : std::string(reordering) + " ! ") + chain.elements;
}

} // namespace

RtpPictures::RtpPictures(const RtpChain& chain, const std::string& caps, bool ordered)
    : chain_(chain), pipeline_(elementsOf(chain, ordered), caps, Feed::packets) {}

bool RtpPictures::start(const StreamSink& sink) {
    if (!loadRtpPlugins(chain_))
        return false;
    if (chain_.codec.empty())
        return pipeline_.start(sink);
    return pipeline_.start(sink, [this, &sink](GstSample* sample) { take(sample, sink); });
}

bool RtpPictures::open(GstSample* sample) {
    const GstCaps* caps = gst_sample_get_caps(sample);
    const GValue* value =
        caps == nullptr ? nullptr : gst_structure_get_value(gst_caps_get_structure(caps, 0), "codec_data");
    GstBuffer* description = value == nullptr ? nullptr : gst_value_get_buffer(value);
    GstMapInfo map{};
    if (description == nullptr || gst_buffer_map(description, &map, GST_MAP_READ) == FALSE)
        return decoder_.open(chain_.codec, nullptr, 0);
    const bool opened = decoder_.open(chain_.codec, map.data, map.size);
    gst_buffer_unmap(description, &map);
    return opened;
}

void RtpPictures::take(GstSample* sample, const StreamSink& sink) {
    GstBuffer* buffer = gst_sample_get_buffer(sample);
    if (buffer == nullptr)
        return;
    keyed_ = keyed_ || !GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DELTA_UNIT);
    if (!keyed_)
        return;
    if (!open_) {
        if (!open(sample)) {
            sink.ended("the decoder can't be opened");
            return;
        }
        open_ = true;
    }
    GstMapInfo map;
    if (gst_buffer_map(buffer, &map, GST_MAP_READ) == FALSE)
        return;
    decoder_.decode(map.data, map.size, sink.picture);
    gst_buffer_unmap(buffer, &map);
}

} // namespace player

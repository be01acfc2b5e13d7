#include "appliance/players/testing/test_marking.h"

#include "appliance/mark/frame_mark.h"

#include <cstdint>

namespace player {
namespace {

void probe(GstElement* bin, const char* name, GstPadProbeCallback callback, void* data) {
    GstElement* element = gst_bin_get_by_name(GST_BIN(bin), name);
    if (element == nullptr)
        return;
    GstPad* pad = gst_element_get_static_pad(element, "src");
    gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, callback, data, nullptr);
    gst_object_unref(pad);
    gst_object_unref(element);
}

GstBuffer* writableBuffer(GstPadProbeInfo* info) {
    GstBuffer* buffer = gst_buffer_make_writable(GST_PAD_PROBE_INFO_BUFFER(info));
    GST_PAD_PROBE_INFO_DATA(info) = buffer;
    return buffer;
}

} // namespace

void Marking::apply(GstElement* bin) {
    probe(bin, "mark", &Marking::draw, this);
    probe(bin, "stamp", &Marking::stamp, nullptr);
}

void Marking::pace(GstElement* bin) {
    probe(bin, "pace", &Marking::stampByCount, this);
}

GstPadProbeReturn Marking::stampByCount(GstPad* /*pad*/, GstPadProbeInfo* info, void* self) {
    const int count = static_cast<Marking*>(self)->counter_++;
    GstBuffer* buffer = writableBuffer(info);
    GST_BUFFER_PTS(buffer) = static_cast<GstClockTime>(count) * GST_SECOND / 25;
    GST_BUFFER_DTS(buffer) = GST_CLOCK_TIME_NONE;
    return GST_PAD_PROBE_OK;
}

GstPadProbeReturn Marking::draw(GstPad* /*pad*/, GstPadProbeInfo* info, void* self) {
    auto& marking = *static_cast<Marking*>(self);
    GstBuffer* buffer = writableBuffer(info);
    GstMapInfo map;
    if (gst_buffer_map(buffer, &map, GST_MAP_READWRITE) == TRUE) {
        const auto counter = static_cast<std::uint16_t>(++marking.counter_);
        drawFrameMark(map.data, marking.width_, marking.height_, 4 * marking.width_,
                      {static_cast<std::uint8_t>(marking.source_), counter});
        gst_buffer_unmap(buffer, &map);
    }
    return GST_PAD_PROBE_OK;
}

GstPadProbeReturn Marking::stamp(GstPad* pad, GstPadProbeInfo* info, void* /*nothing*/) {
    GstBuffer* buffer = writableBuffer(info);
    GstElement* element = gst_pad_get_parent_element(pad);
    GST_BUFFER_PTS(buffer) = gst_element_get_current_running_time(element);
    GST_BUFFER_DTS(buffer) = GST_CLOCK_TIME_NONE;
    gst_object_unref(element);
    return GST_PAD_PROBE_OK;
}

} // namespace player

#include "appliance/players/decoding/sample_pictures.h"

#include <libcommon/log.h>

#include <algorithm>

namespace player {
namespace {

bool isPassedOn(const GstVideoInfo& info) {
    const GstVideoFormat format = GST_VIDEO_INFO_FORMAT(&info);
    return (format == GST_VIDEO_FORMAT_I420 || format == GST_VIDEO_FORMAT_YV12 ||
            format == GST_VIDEO_FORMAT_NV12) &&
           GST_VIDEO_INFO_WIDTH(&info) <= screen::maxPictureSide &&
           GST_VIDEO_INFO_HEIGHT(&info) <= screen::maxPictureSide;
}

// The shape in I420 to convert to.
GstVideoInfo convertedInfo(const GstVideoInfo& from) {
    const int width = GST_VIDEO_INFO_WIDTH(&from);
    const int height = GST_VIDEO_INFO_HEIGHT(&from);
    const int divisor = std::max({1, (width + screen::maxPictureSide - 1) / screen::maxPictureSide,
                                  (height + screen::maxPictureSide - 1) / screen::maxPictureSide});
    GstVideoInfo to;
    gst_video_info_set_format(&to, GST_VIDEO_FORMAT_I420, static_cast<guint>(std::max(1, width / divisor)),
                              static_cast<guint>(std::max(1, height / divisor)));
    // The converter refuses two formats that differ in a property that it does not convert.
    GST_VIDEO_INFO_FPS_N(&to) = GST_VIDEO_INFO_FPS_N(&from);
    GST_VIDEO_INFO_FPS_D(&to) = GST_VIDEO_INFO_FPS_D(&from);
    GST_VIDEO_INFO_INTERLACE_MODE(&to) = GST_VIDEO_INFO_INTERLACE_MODE(&from);
    GST_VIDEO_INFO_PAR_N(&to) = GST_VIDEO_INFO_PAR_N(&from);
    GST_VIDEO_INFO_PAR_D(&to) = GST_VIDEO_INFO_PAR_D(&from);
    if (GST_VIDEO_INFO_IS_YUV(&from))
        to.colorimetry = from.colorimetry;
    return to;
}

screen::PictureShape shapeOf(const GstVideoInfo& info) {
    screen::PictureShape shape;
    shape.width = GST_VIDEO_INFO_WIDTH(&info);
    shape.height = GST_VIDEO_INFO_HEIGHT(&info);
    shape.format = GST_VIDEO_INFO_FORMAT(&info) == GST_VIDEO_FORMAT_NV12 ? screen::PixelFormat::nv12
                                                                         : screen::PixelFormat::i420;
    const int parN = GST_VIDEO_INFO_PAR_N(&info);
    const int parD = GST_VIDEO_INFO_PAR_D(&info);
    if (parN > 0 && parD > 0 && parN <= screen::maxPixelAspect && parD <= screen::maxPixelAspect) {
        shape.aspectNumerator = parN;
        shape.aspectDenominator = parD;
    }
    shape.matrix = info.colorimetry.matrix == GST_VIDEO_COLOR_MATRIX_BT709 ? screen::ColourMatrix::bt709
                                                                           : screen::ColourMatrix::bt601;
    shape.fullRange = info.colorimetry.range == GST_VIDEO_COLOR_RANGE_0_255;
    return shape;
}

screen::PictureView viewOf(const GstVideoFrame& frame) {
    screen::PictureView view;
    view.shape = shapeOf(frame.info);
    for (guint i = 0; i < static_cast<guint>(screen::planeCount(view.shape.format)); ++i) {
        // By component: YV12 has V before U.
        view.plane[i] = static_cast<const std::uint8_t*>(GST_VIDEO_FRAME_COMP_DATA(&frame, i));
        view.stride[i] = static_cast<std::size_t>(GST_VIDEO_FRAME_COMP_STRIDE(&frame, i));
    }
    return view;
}

} // namespace

SamplePictures::~SamplePictures() {
    if (caps_ != nullptr)
        gst_caps_unref(caps_);
    if (converter_ != nullptr)
        gst_video_converter_free(converter_);
    if (converted_ != nullptr)
        gst_buffer_unref(converted_);
}

void SamplePictures::prepare() {
    if (converter_ != nullptr)
        gst_video_converter_free(converter_);
    converter_ = nullptr;
    gst_clear_buffer(&converted_);
    if (isPassedOn(from_))
        return;
    to_ = convertedInfo(from_);
    // Bilinear scaling: no visible difference at this size, and half the work of the default.
    converter_ = gst_video_converter_new(
        &from_, &to_,
        gst_structure_new("options", GST_VIDEO_CONVERTER_OPT_RESAMPLER_METHOD,
                          GST_TYPE_VIDEO_RESAMPLER_METHOD, GST_VIDEO_RESAMPLER_METHOD_LINEAR,
                          GST_VIDEO_CONVERTER_OPT_THREADS, G_TYPE_UINT, 1U, nullptr));
    if (converter_ != nullptr)
        converted_ = gst_buffer_new_allocate(nullptr, GST_VIDEO_INFO_SIZE(&to_), nullptr);
    else
        logmsg(3, "Pictures in the format %s can't be shown", GST_VIDEO_INFO_NAME(&from_));
}

bool SamplePictures::convert(const GstVideoFrame& picture) {
    GstVideoFrame target;
    if (converted_ == nullptr || gst_video_frame_map(&target, &to_, converted_, GST_MAP_WRITE) == FALSE)
        return false;
    gst_video_converter_frame(converter_, &picture, &target);
    gst_video_frame_unmap(&target);
    return true;
}

void SamplePictures::take(GstSample* sample, const std::function<void(const screen::PictureView&)>& give) {
    GstCaps* caps = gst_sample_get_caps(sample);
    GstBuffer* buffer = gst_sample_get_buffer(sample);
    if (caps == nullptr || buffer == nullptr)
        return;
    if (caps != caps_) {
        if (gst_video_info_from_caps(&from_, caps) == FALSE) {
            gst_caps_replace(&caps_, nullptr);
            return;
        }
        gst_caps_replace(&caps_, caps);
        prepare();
    }
    GstVideoFrame frame;
    if (gst_video_frame_map(&frame, &from_, buffer, GST_MAP_READ) == FALSE)
        return;
    GstVideoFrame made;
    if (isPassedOn(from_)) {
        give(viewOf(frame));
    } else if (convert(frame) && gst_video_frame_map(&made, &to_, converted_, GST_MAP_READ) == TRUE) {
        give(viewOf(made));
        gst_video_frame_unmap(&made);
    }
    gst_video_frame_unmap(&frame);
}

} // namespace player

#include "appliance/players/showing/picture_converter.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace player {
namespace {

constexpr double screenAspect = 4.0 / 3.0;

bool isAnalogueSize(int width, int height) {
    const bool columns = width == 720 || width == 704 || width == 360 || width == 352 || width == 176;
    const bool rows =
        height == 576 || height == 480 || height == 288 || height == 240 || height == 144 || height == 120;
    return columns && rows;
}

double aspectOf(const GstVideoInfo& picture) {
    const int width = GST_VIDEO_INFO_WIDTH(&picture);
    const int height = GST_VIDEO_INFO_HEIGHT(&picture);
    const int parN = GST_VIDEO_INFO_PAR_N(&picture);
    const int parD = GST_VIDEO_INFO_PAR_D(&picture);
    if (parN == parD && isAnalogueSize(width, height))
        return screenAspect;
    return static_cast<double>(width) * parN / (static_cast<double>(height) * parD);
}

// Replaces each row of a plane by the weighted mean of itself and its neighbours.
void smoothPlane(const std::uint8_t* from, int fromStride, std::uint8_t* to, int toStride, int bytes,
                 int rows) {
    for (int y = 0; y < rows; ++y) {
        const std::uint8_t* above = from + static_cast<std::ptrdiff_t>(std::max(y - 1, 0)) * fromStride;
        const std::uint8_t* here = from + static_cast<std::ptrdiff_t>(y) * fromStride;
        const std::uint8_t* below =
            from + static_cast<std::ptrdiff_t>(std::min(y + 1, rows - 1)) * fromStride;
        std::uint8_t* out = to + static_cast<std::ptrdiff_t>(y) * toStride;
        for (int x = 0; x < bytes; ++x)
            out[x] = static_cast<std::uint8_t>((above[x] + 2 * here[x] + below[x] + 2) >> 2);
    }
}

bool isEightBitYuv(const GstVideoInfo& info) {
    return GST_VIDEO_INFO_IS_YUV(&info) && GST_VIDEO_INFO_COMP_DEPTH(&info, 0) == 8 &&
           GST_VIDEO_INFO_COMP_PSTRIDE(&info, 0) == 1;
}

} // namespace

Place placeOnScreen(const GstVideoInfo& picture, int screenWidth, int screenHeight) {
    const double aspect = aspectOf(picture);
    Place place{0, 0, screenWidth, screenHeight};
    // Even sizes, because two pixels share a chroma value.
    const auto even = [](double value) { return std::max(2, 2 * static_cast<int>(std::lround(value / 2))); };
    if (aspect > screenAspect * 1.01)
        place.height = std::min(screenHeight, even(screenHeight * screenAspect / aspect));
    else if (aspect < screenAspect / 1.01)
        place.width = std::min(screenWidth, even(screenWidth * aspect / screenAspect));
    place.x = (screenWidth - place.width) / 2;
    place.y = (screenHeight - place.height) / 2;
    return place;
}

bool showsCombs(const GstVideoFrame& picture) {
    if (!isEightBitYuv(picture.info))
        return false;
    const auto* luma = static_cast<const std::uint8_t*>(GST_VIDEO_FRAME_COMP_DATA(&picture, 0));
    const int stride = GST_VIDEO_FRAME_COMP_STRIDE(&picture, 0);
    const int width = GST_VIDEO_FRAME_COMP_WIDTH(&picture, 0);
    const int height = GST_VIDEO_FRAME_COMP_HEIGHT(&picture, 0);
    constexpr int step = 3; // every third column is examined
    constexpr int edge = 12;
    int looked = 0;
    int combed = 0;
    for (int y = 2; y + 2 < height; y += 2) {
        const std::uint8_t* here = luma + static_cast<std::ptrdiff_t>(y) * stride;
        for (int x = 0; x < width; x += step) {
            const int above = here[x] - here[x - stride];
            const int below = here[x] - here[x + stride];
            const int sameField =
                std::abs(here[x] - here[x - 2 * stride]) + std::abs(here[x] - here[x + 2 * stride]);
            const bool comb = (above > edge && below > edge) || (above < -edge && below < -edge);
            combed += comb && 2 * sameField < std::abs(above) + std::abs(below) ? 1 : 0;
            ++looked;
        }
    }
    return looked > 0 && combed * 100 > looked; // more than one in a hundred
}

PictureConverter::~PictureConverter() {
    if (converter_ != nullptr)
        gst_video_converter_free(converter_);
    if (smoothed_ != nullptr)
        gst_buffer_unref(smoothed_);
}

bool PictureConverter::prepare(const GstVideoInfo& from, int width, int height) {
    if (converter_ != nullptr && gst_video_info_is_equal(&from, &from_) == TRUE &&
        GST_VIDEO_INFO_WIDTH(&to_) == width && GST_VIDEO_INFO_HEIGHT(&to_) == height)
        return true;
    if (converter_ != nullptr)
        gst_video_converter_free(converter_);
    if (smoothed_ != nullptr)
        gst_buffer_unref(smoothed_);
    smoothed_ = nullptr;
    from_ = from;
    gst_video_info_set_format(&smoothedInfo_, GST_VIDEO_INFO_FORMAT(&from),
                              static_cast<guint>(GST_VIDEO_INFO_WIDTH(&from)),
                              static_cast<guint>(GST_VIDEO_INFO_HEIGHT(&from)));
    gst_video_info_set_format(&to_, GST_VIDEO_FORMAT_BGRx, static_cast<guint>(width),
                              static_cast<guint>(height));
    // The converter refuses two formats that differ in a property that it does not convert.
    GST_VIDEO_INFO_FPS_N(&to_) = GST_VIDEO_INFO_FPS_N(&from);
    GST_VIDEO_INFO_FPS_D(&to_) = GST_VIDEO_INFO_FPS_D(&from);
    GST_VIDEO_INFO_INTERLACE_MODE(&to_) = GST_VIDEO_INFO_INTERLACE_MODE(&from);
    const Place place = placeOnScreen(from, width, height);
    // Bilinear scaling: no visible difference at this size, and half the work of the default.
    converter_ = gst_video_converter_new(
        &from_, &to_,
        gst_structure_new(
            "options", GST_VIDEO_CONVERTER_OPT_DEST_X, G_TYPE_INT, place.x, GST_VIDEO_CONVERTER_OPT_DEST_Y,
            G_TYPE_INT, place.y, GST_VIDEO_CONVERTER_OPT_DEST_WIDTH, G_TYPE_INT, place.width,
            GST_VIDEO_CONVERTER_OPT_DEST_HEIGHT, G_TYPE_INT, place.height,
            GST_VIDEO_CONVERTER_OPT_FILL_BORDER, G_TYPE_BOOLEAN, TRUE, GST_VIDEO_CONVERTER_OPT_BORDER_ARGB,
            G_TYPE_UINT, 0xff000000U, GST_VIDEO_CONVERTER_OPT_RESAMPLER_METHOD,
            GST_TYPE_VIDEO_RESAMPLER_METHOD, GST_VIDEO_RESAMPLER_METHOD_LINEAR,
            GST_VIDEO_CONVERTER_OPT_THREADS, G_TYPE_UINT, 1U, nullptr));
    return converter_ != nullptr;
}

bool PictureConverter::smooth(const GstVideoFrame& picture) {
    if (smoothed_ == nullptr)
        smoothed_ = gst_buffer_new_allocate(nullptr, GST_VIDEO_INFO_SIZE(&smoothedInfo_), nullptr);
    GstVideoFrame target;
    if (smoothed_ == nullptr ||
        gst_video_frame_map(&target, &smoothedInfo_, smoothed_, GST_MAP_WRITE) == FALSE)
        return false;
    for (guint plane = 0; plane < GST_VIDEO_FRAME_N_PLANES(&picture); ++plane) {
        gint components[GST_VIDEO_MAX_COMPONENTS];
        gst_video_format_info_component(picture.info.finfo, plane, components);
        const auto component = static_cast<guint>(components[0]);
        smoothPlane(static_cast<const std::uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&picture, plane)),
                    GST_VIDEO_FRAME_PLANE_STRIDE(&picture, plane),
                    static_cast<std::uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&target, plane)),
                    GST_VIDEO_FRAME_PLANE_STRIDE(&target, plane),
                    GST_VIDEO_FRAME_COMP_WIDTH(&picture, component) *
                        GST_VIDEO_FRAME_COMP_PSTRIDE(&picture, component),
                    GST_VIDEO_FRAME_COMP_HEIGHT(&picture, component));
    }
    gst_video_frame_unmap(&target);
    return true;
}

bool PictureConverter::convert(const GstVideoFrame& picture, std::uint8_t* out, int width, int height) {
    if (!prepare(picture.info, width, height))
        return false;
    const std::size_t pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    GstBuffer* target =
        gst_buffer_new_wrapped_full(GstMemoryFlags(0), out, 4 * pixels, 0, 4 * pixels, nullptr, nullptr);
    GstVideoFrame to;
    GstVideoFrame from;
    bool done = gst_video_frame_map(&to, &to_, target, GST_MAP_WRITE) == TRUE;
    if (done) {
        const bool combed =
            interlace_ == Interlace::smoothed || (interlace_ == Interlace::automatic && showsCombs(picture));
        if (combed && isEightBitYuv(from_) && smooth(picture) &&
            gst_video_frame_map(&from, &smoothedInfo_, smoothed_, GST_MAP_READ) == TRUE) {
            gst_video_converter_frame(converter_, &from, &to);
            gst_video_frame_unmap(&from);
        } else {
            gst_video_converter_frame(converter_, &picture, &to);
        }
        gst_video_frame_unmap(&to);
    }
    gst_buffer_unref(target);
    if (done && turned_) {
        auto* first = reinterpret_cast<std::uint32_t*>(out);
        std::reverse(first, first + pixels);
    }
    return done;
}

} // namespace player

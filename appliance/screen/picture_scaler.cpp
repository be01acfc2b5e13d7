#include "appliance/screen/picture_scaler.h"

#include <libcommon/log.h>

#include <algorithm>
#include <cstring>

extern "C" {
#include <libswscale/swscale.h>
}

namespace screen {
namespace {

// Vector instructions read and write whole vectors, at most this many bytes.
constexpr std::size_t vectorBytes = 64;

// Of a narrow picture the scaler reads more columns than there are.
constexpr int narrow = 64;

PixelFormat scaledFormat(PixelFormat format) {
    return format == PixelFormat::bgrx ? PixelFormat::bgrx : PixelFormat::i420;
}

AVPixelFormat avFormat(PixelFormat format) {
    return format == PixelFormat::bgrx ? AV_PIX_FMT_BGR0 : AV_PIX_FMT_YUV420P;
}

bool isAligned(const std::uint8_t* row, std::size_t stride) {
    return reinterpret_cast<std::uintptr_t>(row) % 16 == 0 && stride % 16 == 0;
}

void copyRows(const std::uint8_t* from, std::size_t stride, PlaneMemory& to, int plane) {
    const PlaneLayout& layout = to.layout(plane);
    for (std::size_t y = 0; y < static_cast<std::size_t>(layout.rows); ++y)
        std::memcpy(to.plane(plane) + y * layout.stride, from + y * stride, layout.rowBytes);
}

// U and V in turns become two planes.
void splitColours(const std::uint8_t* from, std::size_t stride, PlaneMemory& to) {
    const PlaneLayout& layout = to.layout(1);
    for (std::size_t y = 0; y < static_cast<std::size_t>(layout.rows); ++y) {
        const std::uint8_t* row = from + y * stride;
        std::uint8_t* u = to.plane(1) + y * layout.stride;
        std::uint8_t* v = to.plane(2) + y * layout.stride;
        for (std::size_t x = 0; x < layout.rowBytes; ++x) {
            u[x] = row[2 * x];
            v[x] = row[2 * x + 1];
        }
    }
}

// The picture that begins at `from`. Nothing is copied.
PictureView cut(const PictureView& picture, const Rectangle& from) {
    PictureView part = picture;
    part.shape.width = from.width;
    part.shape.height = from.height;
    const auto x = static_cast<std::size_t>(from.x);
    const auto y = static_cast<std::size_t>(from.y);
    const bool bgrx = picture.shape.format == PixelFormat::bgrx;
    part.plane[0] += y * picture.stride[0] + (bgrx ? 4 * x : x);
    const std::size_t colour = picture.shape.format == PixelFormat::nv12 ? x : x / 2;
    for (std::size_t i = 1; i < static_cast<std::size_t>(planeCount(picture.shape.format)); ++i)
        part.plane[i] += y / 2 * picture.stride[i] + colour;
    return part;
}

} // namespace

void PlaneMemory::prepare(PixelFormat format, Size size) {
    PictureShape shape;
    shape.format = format;
    shape.width = size.width;
    shape.height = size.height;
    if (shape == shape_ && start_ != nullptr)
        return;
    shape_ = shape;
    std::size_t offset = 0;
    planes_ = planesOf(shape);
    for (PlaneLayout& plane : planes_) {
        plane.stride = (plane.rowBytes + 2 * vectorBytes - 1) / vectorBytes * vectorBytes;
        plane.offset = offset;
        offset += plane.stride * static_cast<std::size_t>(plane.rows);
    }
    bytes_.resize(offset + 3 * vectorBytes);
    const auto address = reinterpret_cast<std::uintptr_t>(bytes_.data());
    start_ = bytes_.data() + (vectorBytes - address % vectorBytes) % vectorBytes;
}

PictureView PlaneMemory::view(const PictureShape& like) const {
    PictureView view{like, {}, {}};
    view.shape.format = shape_.format;
    view.shape.width = shape_.width;
    view.shape.height = shape_.height;
    for (std::size_t i = 0; i < static_cast<std::size_t>(planeCount(shape_.format)); ++i) {
        view.plane[i] = start_ + planes_[i].offset;
        view.stride[i] = planes_[i].stride;
    }
    return view;
}

PictureScaler::~PictureScaler() {
    sws_freeContext(context_);
}

// The part of the picture as the scaler can read it: planes that begin at whole vectors, with room behind the rows.
PictureView PictureScaler::sourceOf(const PictureView& picture, const Rectangle& from) {
    const PictureView part = cut(picture, from);
    const PixelFormat format = picture.shape.format;
    const bool planar = format == PixelFormat::i420;
    if (planar && from.width >= narrow && isAligned(part.plane[0], part.stride[0]) &&
        isAligned(part.plane[1], part.stride[1]) && isAligned(part.plane[2], part.stride[2]))
        return part;
    source_.prepare(scaledFormat(format), {from.width, from.height});
    copyRows(part.plane[0], part.stride[0], source_, 0);
    if (format == PixelFormat::nv12)
        splitColours(part.plane[1], part.stride[1], source_);
    for (int i = 1; planar && i < 3; ++i)
        copyRows(part.plane[static_cast<std::size_t>(i)], part.stride[static_cast<std::size_t>(i)], source_,
                 i);
    return source_.view(part.shape);
}

PictureView PictureScaler::scale(const PictureView& picture, const Rectangle& from, Size size) {
    const PixelFormat format = scaledFormat(picture.shape.format);
    // BGRx is scaled with colours of half the width unless these flags say otherwise.
    const int flags = SWS_BILINEAR | SWS_ACCURATE_RND |
                      (format == PixelFormat::bgrx ? SWS_FULL_CHR_H_INP | SWS_FULL_CHR_H_INT : 0);
    context_ = sws_getCachedContext(context_, from.width, from.height, avFormat(format), size.width,
                                    size.height, avFormat(format), flags, nullptr, nullptr, nullptr);
    if (context_ == nullptr) {
        if (!failed_)
            logmsg(3, "A picture of %dx%d can't be scaled to %dx%d", from.width, from.height, size.width,
                   size.height);
        failed_ = true;
        return {};
    }
    const PictureView source = sourceOf(picture, from);
    result_.prepare(format, size);
    int sourceStrides[4] = {};
    int strides[4] = {};
    const std::uint8_t* sourcePlanes[4] = {};
    std::uint8_t* planes[4] = {};
    for (int i = 0; i < planeCount(format); ++i) {
        const auto plane = static_cast<std::size_t>(i);
        sourcePlanes[i] = source.plane[plane];
        sourceStrides[i] = static_cast<int>(source.stride[plane]);
        planes[i] = result_.plane(i);
        strides[i] = static_cast<int>(result_.stride(i));
    }
    sws_scale(context_, sourcePlanes, sourceStrides, 0, from.height, planes, strides);
    return result_.view(picture.shape);
}

} // namespace screen

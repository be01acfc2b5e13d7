#include "appliance/screen/picture_shape.h"

namespace screen {
namespace {

constexpr std::size_t alignment = 32;

std::size_t aligned(std::size_t bytes) {
    return (bytes + alignment - 1) / alignment * alignment;
}

bool isSide(int side) {
    return side >= 1 && side <= maxPictureSide;
}

bool isAspect(int part) {
    return part >= 1 && part <= maxPixelAspect;
}

} // namespace

int planeCount(PixelFormat format) {
    switch (format) {
    case PixelFormat::bgrx:
        return 1;
    case PixelFormat::i420:
        return 3;
    case PixelFormat::nv12:
        return 2;
    }
    return 0;
}

PlaneLayouts planesOf(const PictureShape& shape) {
    PlaneLayouts planes;
    std::size_t offset = 0;
    const auto add = [&](std::size_t plane, int rows, std::size_t rowBytes) {
        planes[plane] = {offset, aligned(rowBytes), rows, rowBytes};
        offset += planes[plane].stride * static_cast<std::size_t>(rows);
    };
    const auto width = static_cast<std::size_t>(shape.width);
    const std::size_t half = (width + 1) / 2;
    const int halfRows = (shape.height + 1) / 2;
    switch (shape.format) {
    case PixelFormat::bgrx:
        add(0, shape.height, 4 * width);
        break;
    case PixelFormat::i420:
        add(0, shape.height, width);
        add(1, halfRows, half);
        add(2, halfRows, half);
        break;
    case PixelFormat::nv12:
        add(0, shape.height, width);
        add(1, halfRows, 2 * half);
        break;
    }
    return planes;
}

std::size_t bytesOf(const PictureShape& shape) {
    std::size_t bytes = 0;
    for (const PlaneLayout& plane : planesOf(shape))
        bytes += plane.stride * static_cast<std::size_t>(plane.rows);
    return bytes;
}

const char* faultOf(const PictureShape& shape) {
    if (!isSide(shape.width) || !isSide(shape.height))
        return "a side of the picture is not between 1 and 4096 pixels";
    if (planeCount(shape.format) == 0)
        return "no such pixel format";
    if (!isAspect(shape.aspectNumerator) || !isAspect(shape.aspectDenominator))
        return "the shape of its pixels is not between 1 and 65535";
    if (shape.matrix != ColourMatrix::bt601 && shape.matrix != ColourMatrix::bt709)
        return "no such colour matrix";
    if (shape.turn > Turn::left)
        return "no such turn";
    return nullptr;
}

PictureView viewOf(const PictureShape& shape, const std::uint8_t* bytes) {
    PictureView view;
    view.shape = shape;
    const PlaneLayouts planes = planesOf(shape);
    for (std::size_t i = 0; i < planes.size() && planes[i].rows > 0; ++i) {
        view.plane[i] = bytes + planes[i].offset;
        view.stride[i] = planes[i].stride;
    }
    return view;
}

const char* faultOf(const PictureView& picture) {
    if (const char* fault = faultOf(picture.shape))
        return fault;
    const PlaneLayouts planes = planesOf(picture.shape);
    for (std::size_t i = 0; i < planes.size(); ++i)
        if (planes[i].rows > 0 && (picture.plane[i] == nullptr || picture.stride[i] < planes[i].rowBytes))
            return "one of its planes is missing or has rows that are too short";
    return nullptr;
}

PictureShape televisionShape(VideoMode mode) {
    const VideoFormat& format = formatOf(mode);
    PictureShape shape;
    shape.width = format.width;
    shape.height = format.height;
    const bool pal = mode == VideoMode::pal;
    shape.aspectNumerator = pal ? 16 : 8;
    shape.aspectDenominator = pal ? 15 : 9;
    return shape;
}

} // namespace screen

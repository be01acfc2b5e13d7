// The shape of a picture: its size and how its pixels are laid out and meant.
//
// Players hand in what their decoders make: I420 or NV12 in the picture's own size. Programs without a decoder draw
// BGRx: 32 bits for each pixel, blue in the first byte, the fourth byte unused. As a number of this machine such a
// pixel is 0x00RRGGBB.
//
// I420 has three planes (Y, U, V) and NV12 two (Y; U and V in turns). Colour has half the width and half the height
// of the picture, rounded up.
#pragma once

#include "appliance/screen/video_mode.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace screen {

enum class PixelFormat : std::uint32_t { bgrx = 1, i420 = 2, nv12 = 3 };
enum class ColourMatrix : std::uint32_t { bt601 = 1, bt709 = 2 };
// How a picture is turned when it is shown, clockwise. The store keeps it unturned.
enum class Turn : std::uint32_t { none = 0, right = 1, half = 2, left = 3 };

inline constexpr int maxPictureSide = 4096;   // pixels; players scale larger pictures down
inline constexpr int maxPixelAspect = 65'535; // so that a side times an aspect fits an int

struct PictureShape {
    int width = 0;  // pixels before turning, 1 to maxPictureSide
    int height = 0; // likewise; odd sizes are allowed
    PixelFormat format = PixelFormat::bgrx;
    int aspectNumerator = 1; // width of a pixel : its height; both 1 to maxPixelAspect
    int aspectDenominator = 1;
    ColourMatrix matrix = ColourMatrix::bt601; // this and fullRange have no meaning for bgrx
    bool fullRange = false;
    Turn turn = Turn::none;

    bool operator==(const PictureShape&) const = default;
};

// A plane in the store and in a Frame.
struct PlaneLayout {
    std::size_t offset = 0;   // of the first row, bytes from the picture's begin; a multiple of 32
    std::size_t stride = 0;   // from one row to the next, bytes; a multiple of 32
    int rows = 0;             // 0: the format has no such plane
    std::size_t rowBytes = 0; // bytes of a row that belong to the picture
};

using PlaneLayouts = std::array<PlaneLayout, 3>;

int planeCount(PixelFormat format); // 1 to 3

// For a shape without a fault.
PlaneLayouts planesOf(const PictureShape& shape);

// The bytes of a picture with these planes, at most 64 MiB. For a shape without a fault.
std::size_t bytesOf(const PictureShape& shape);

// Why no picture can have this shape; null: it is usable. Any value may be given, also from outside.
const char* faultOf(const PictureShape& shape);

// A picture in memory that belongs to somebody else. Planes that the format does not have are null.
struct PictureView {
    PictureShape shape;
    std::array<const std::uint8_t*, 3> plane{};
    std::array<std::size_t, 3> stride{}; // bytes
};

// The picture at `bytes`, its planes as planesOf(shape) lays them out. For a shape without a fault.
PictureView viewOf(const PictureShape& shape, const std::uint8_t* bytes);

// Why the picture is not usable: its shape, a missing plane or a stride shorter than a row. Null: it is usable.
const char* faultOf(const PictureView& picture);

// A BGRx picture of the mode's own size, shown as 4:3.
PictureShape televisionShape(VideoMode mode);

} // namespace screen

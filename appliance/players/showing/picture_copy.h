// Copies a decoded picture and notices whether it differs from others.
#pragma once

#include "appliance/screen/picture_shape.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace player {

// Memory for a picture; a null plane is not written.
struct PicturePlanes {
    std::array<std::uint8_t*, 3> plane{};
    std::array<std::size_t, 3> stride{};
};

// Copies the picture's planes, each row smoothed where `smooth` is set. Returns a hash of every visible byte of the
// picture as it was given. The hash is made row by row while the row is in the processor's cache, so it costs less
// than a second pass. Two different pictures have the same hash about once in 2^64; it is not cryptographic, because
// an encoder gains nothing from a collision.
std::uint64_t copyAndHash(const screen::PictureView& from, const PicturePlanes& to, bool smooth);

} // namespace player

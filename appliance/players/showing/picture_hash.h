// Compares decoded pictures by a hash.
#pragma once

#include <cstdint>
#include <gst/video/video.h>

namespace player {

// A hash of every visible byte of the picture. Two different pictures have the same hash about once in 2^64.
// It is not cryptographic: an encoder gains nothing from a collision.
std::uint64_t hashOf(const GstVideoFrame& picture);

} // namespace player

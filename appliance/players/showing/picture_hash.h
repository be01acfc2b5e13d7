// Tells two decoded pictures apart.
#pragma once

#include <cstdint>
#include <gst/video/video.h>

namespace player {

// A number over every byte of the picture that can be seen. Two pictures that differ in a single bit have the
// same number about once in 2^64; nobody chooses pictures against us here, so it need not be a cryptographic
// one.
std::uint64_t hashOf(const GstVideoFrame& picture);

} // namespace player

// JPEG pictures of what the screen shows.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace panel {

using JpegPtr = std::shared_ptr<const std::string>; // shared by all who send it

// Encodes width * height pixels, 0x00RRGGBB; quality 1 to 100. Null with a log line on failure. Any thread.
JpegPtr encodeJpeg(std::span<const std::uint32_t> pixels, int width, int height, int quality);

} // namespace panel

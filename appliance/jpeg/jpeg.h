// Making JPEG pictures, for the encoder and the panel.
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>

using JpegPtr = std::shared_ptr<const std::string>; // shared by all who send it

// Encodes width * height pixels of the bytes B, G, R, X; quality 1 to 100. Null when there are fewer pixels, when a JPEG
// can't have that size, or without memory. Any thread.
JpegPtr encodeJpeg(std::span<const std::byte> pixels, int width, int height, int quality);

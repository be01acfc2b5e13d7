#include "appliance/mark/frame_mark.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace {

constexpr int bitCount = 32; // source 8, counter 16, check 8; the highest bit is at the left
constexpr double stripTop = 0.90;
constexpr double rowHeight = (1.0 - stripTop) / 2;
constexpr int minWidth = 64;
constexpr int minHeight = 40;

// The limits of broadcast video, so that no converter clips one of them.
constexpr std::uint8_t dark = 16;
constexpr std::uint8_t light = 235;

// The least difference between the two cells of a pair. Plain and softly shaded pictures don't reach it over
// the whole width, and noise averages out within a cell.
constexpr double minContrast = 50;

struct Box {
    int left, top, right, bottom; // right and bottom are exclusive
};

// The cell of a bit in the upper (0) or lower (1) row, reduced by the share `inset` at each edge.
Box cell(int bit, int row, int width, int height, double inset) {
    const double cellWidth = static_cast<double>(width) / bitCount;
    const double cellHeight = rowHeight * height;
    const double left = bit * cellWidth;
    const double top = stripTop * height + row * cellHeight;
    Box box{static_cast<int>(std::lround(left + inset * cellWidth)),
            static_cast<int>(std::lround(top + inset * cellHeight)),
            static_cast<int>(std::lround(left + (1 - inset) * cellWidth)),
            static_cast<int>(std::lround(top + (1 - inset) * cellHeight))};
    box.right = std::min(std::max(box.right, box.left + 1), width);
    box.bottom = std::min(std::max(box.bottom, box.top + 1), height);
    return box;
}

std::uint8_t checkOf(std::uint32_t sourceAndCounter) {
    std::uint8_t crc = 0xA5; // not 0: a strip of zeros must not be valid
    for (int shift = 16; shift >= 0; shift -= 8) {
        crc = static_cast<std::uint8_t>(crc ^ (sourceAndCounter >> shift));
        for (int i = 0; i < 8; ++i)
            crc = static_cast<std::uint8_t>((crc << 1) ^ ((crc & 0x80) != 0 ? 0x07 : 0));
    }
    return crc;
}

void fill(std::uint8_t* bgrx, int stride, const Box& box, std::uint8_t grey) {
    for (int y = box.top; y < box.bottom; ++y) {
        std::uint8_t* pixel =
            bgrx + static_cast<std::ptrdiff_t>(y) * stride + static_cast<std::ptrdiff_t>(box.left) * 4;
        for (int x = box.left; x < box.right; ++x, pixel += 4) {
            pixel[0] = pixel[1] = pixel[2] = grey;
            pixel[3] = 0xFF;
        }
    }
}

// How the brightness of a pixel is read.
struct BgrxPixels {
    static constexpr int bytes = 4;
    static int luma(const std::uint8_t* pixel) {
        return (pixel[0] * 29 + pixel[1] * 150 + pixel[2] * 77) >> 8;
    }
};
struct LumaPixels {
    static constexpr int bytes = 1;
    static int luma(const std::uint8_t* pixel) { return *pixel; }
};

template<class Pixels>
double meanLuma(const std::uint8_t* picture, int stride, const Box& box) {
    std::int64_t sum = 0;
    for (int y = box.top; y < box.bottom; ++y) {
        const std::uint8_t* pixel = picture + static_cast<std::ptrdiff_t>(y) * stride +
                                    static_cast<std::ptrdiff_t>(box.left) * Pixels::bytes;
        for (int x = box.left; x < box.right; ++x, pixel += Pixels::bytes)
            sum += Pixels::luma(pixel);
    }
    const std::int64_t count = static_cast<std::int64_t>(box.right - box.left) * (box.bottom - box.top);
    return static_cast<double>(sum) / static_cast<double>(count);
}

bool tooSmall(int width, int height) {
    return width < minWidth || height < minHeight;
}

template<class Pixels>
std::optional<FrameMark> readMark(const std::uint8_t* picture, int width, int height, int stride) {
    if (tooSmall(width, height))
        return std::nullopt;
    std::uint32_t word = 0;
    for (int bit = 0; bit < bitCount; ++bit) {
        // The middle half of a cell: scaling blurs its edges and compression distorts them.
        const double upper = meanLuma<Pixels>(picture, stride, cell(bit, 0, width, height, 0.25));
        const double lower = meanLuma<Pixels>(picture, stride, cell(bit, 1, width, height, 0.25));
        if (std::abs(upper - lower) < minContrast)
            return std::nullopt;
        word = word << 1 | (upper > lower ? 1U : 0U);
    }
    const std::uint32_t data = word >> 8;
    if (checkOf(data) != (word & 0xFF))
        return std::nullopt;
    return FrameMark{static_cast<std::uint8_t>(data >> 16), static_cast<std::uint16_t>(data)};
}

} // namespace

void drawFrameMark(std::uint8_t* bgrx, int width, int height, int stride, FrameMark mark) {
    if (tooSmall(width, height))
        return;
    const std::uint32_t data = static_cast<std::uint32_t>(mark.source) << 16 | mark.counter;
    const std::uint32_t word = data << 8 | checkOf(data);
    for (int bit = 0; bit < bitCount; ++bit) {
        const bool set = (word >> (bitCount - 1 - bit) & 1) != 0;
        fill(bgrx, stride, cell(bit, 0, width, height, 0), set ? light : dark);
        fill(bgrx, stride, cell(bit, 1, width, height, 0), set ? dark : light);
    }
}

std::optional<FrameMark> readFrameMark(const std::uint8_t* bgrx, int width, int height, int stride) {
    return readMark<BgrxPixels>(bgrx, width, height, stride);
}

std::optional<FrameMark> readFrameMarkInLuma(const std::uint8_t* luma, int width, int height, int stride) {
    return readMark<LumaPixels>(luma, width, height, stride);
}

#include "appliance/screen/colour_conversion.h"

#include <algorithm>
#include <cstddef>

namespace screen {
namespace {

// All sums are 64 times the value, and 128 less, so that they fit 16 bits: a compiler makes vectors of them that have
// twice as many elements as those of 32 bits.
constexpr int fractionBits = 6;
constexpr int middle = 128;

struct Coefficients {
    std::uint16_t y;       // 256 * 64 times the factor
    std::int16_t base;     // added to each sum
    std::int16_t redOfV;   // 256 * 64 times (the factor - 1)
    std::int16_t greenOfU; // likewise
    std::int16_t greenOfV;
    std::int16_t blueOfU;
};

constexpr double scale = 256 << fractionBits;

constexpr std::int16_t rounded(double value) {
    return static_cast<std::int16_t>(value < 0 ? value - 0.5 : value + 0.5);
}

// Of a matrix with these shares of red and blue in Y.
constexpr Coefficients coefficients(double redShare, double blueShare, bool fullRange) {
    const double y = fullRange ? 1.0 : 255.0 / 219.0;
    const double black = fullRange ? 0 : 16;
    const double colour = fullRange ? 1.0 : 255.0 / 224.0;
    const double greenShare = 1 - redShare - blueShare;
    const double red = 2 * (1 - redShare) * colour;
    const double blue = 2 * (1 - blueShare) * colour;
    const double half = 0.5;                       // for rounding
    const double lost = 0.5 / (1 << fractionBits); // what cutting the fraction takes away on average
    return {static_cast<std::uint16_t>(y * scale + 0.5),
            rounded((half + lost - y * black - middle) * (1 << fractionBits)),
            rounded((red - 1) * scale),
            rounded((-blue * blueShare / greenShare - 1) * scale),
            rounded((-red * redShare / greenShare - 1) * scale),
            rounded((blue - 1) * scale)};
}

const Coefficients& coefficientsOf(const PictureShape& shape) {
    static constexpr Coefficients table[2][2] = {
        {coefficients(0.299, 0.114, false), coefficients(0.299, 0.114, true)},
        {coefficients(0.2126, 0.0722, false), coefficients(0.2126, 0.0722, true)},
    };
    return table[shape.matrix == ColourMatrix::bt709 ? 1 : 0][shape.fullRange ? 1 : 0];
}

// `factor` as in Coefficients. The factor's 1 is added apart, because factors up to 2.1 would not fit.
inline std::int16_t times(std::int16_t colour, std::int16_t factor) {
    const auto wide = static_cast<std::int16_t>(colour * 256);
    const auto high = static_cast<std::int16_t>((std::int32_t{wide} * factor) >> 16);
    return static_cast<std::int16_t>(colour * (1 << fractionBits) + high);
}

inline std::uint32_t clamped(std::int16_t sum) {
    const auto value = static_cast<std::int16_t>((sum >> fractionBits) + middle);
    return static_cast<std::uint32_t>(std::min<std::int16_t>(std::max<std::int16_t>(value, 0), 255));
}

// Two neighbours share a colour. `step`: from one U, or V, to the next, bytes.
template<int step>
void addColours(const std::uint8_t* u, const std::uint8_t* v, std::size_t count, const Coefficients& k,
                std::int16_t* __restrict red, std::int16_t* __restrict green, std::int16_t* __restrict blue) {
    for (std::size_t i = 0; i < count; ++i) {
        const auto cu = static_cast<std::int16_t>(u[i * step] - 128);
        const auto cv = static_cast<std::int16_t>(v[i * step] - 128);
        const std::int16_t r = times(cv, k.redOfV);
        const auto g = static_cast<std::int16_t>(times(cu, k.greenOfU) + times(cv, k.greenOfV));
        const std::int16_t b = times(cu, k.blueOfU);
        red[2 * i] = r;
        red[2 * i + 1] = r;
        green[2 * i] = g;
        green[2 * i + 1] = g;
        blue[2 * i] = b;
        blue[2 * i + 1] = b;
    }
}

void addBrightness(const std::uint8_t* y, const std::int16_t* red, const std::int16_t* green,
                   const std::int16_t* blue, std::size_t count, const Coefficients& k,
                   std::uint32_t* __restrict out) {
    for (std::size_t i = 0; i < count; ++i) {
        const auto wide = static_cast<std::uint16_t>(y[i] * 256);
        const auto high = static_cast<std::uint16_t>((std::uint32_t{wide} * k.y) >> 16);
        const auto sum = static_cast<std::int16_t>(high + k.base);
        const std::uint32_t r = clamped(static_cast<std::int16_t>(sum + red[i]));
        const std::uint32_t g = clamped(static_cast<std::int16_t>(sum + green[i]));
        const std::uint32_t b = clamped(static_cast<std::int16_t>(sum + blue[i]));
        out[i] = r << 16 | g << 8 | b;
    }
}

} // namespace

ColourConversion::ColourConversion(const PictureView& picture, int x, int y, int width)
    : picture_(picture), x_(x), y_(y), width_(width) {
    const std::size_t room = static_cast<std::size_t>(width) + 1;
    red_.resize(room);
    green_.resize(room);
    blue_.resize(room);
}

void ColourConversion::readColours(int colourRow) {
    if (colourRow == colourRow_)
        return;
    colourRow_ = colourRow;
    const Coefficients& k = coefficientsOf(picture_.shape);
    const std::size_t row = static_cast<std::size_t>(y_ / 2) + static_cast<std::size_t>(colourRow);
    const auto count = static_cast<std::size_t>(width_ + 1) / 2;
    const std::uint8_t* u = picture_.plane[1] + row * picture_.stride[1];
    if (picture_.shape.format == PixelFormat::nv12) {
        u += x_;
        addColours<2>(u, u + 1, count, k, red_.data(), green_.data(), blue_.data());
        return;
    }
    const std::uint8_t* v = picture_.plane[2] + row * picture_.stride[2];
    addColours<1>(u + x_ / 2, v + x_ / 2, count, k, red_.data(), green_.data(), blue_.data());
}

void ColourConversion::row(int row, std::uint32_t* out) {
    readColours(row / 2);
    const std::uint8_t* y =
        picture_.plane[0] +
        (static_cast<std::size_t>(y_) + static_cast<std::size_t>(row)) * picture_.stride[0] + x_;
    addBrightness(y, red_.data(), green_.data(), blue_.data(), static_cast<std::size_t>(width_),
                  coefficientsOf(picture_.shape), out);
}

} // namespace screen

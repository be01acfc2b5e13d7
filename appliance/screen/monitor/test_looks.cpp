#include "appliance/screen/monitor/test_looks.h"

#include "appliance/screen/painter.h"

#include <algorithm>
#include <cstdlib>

namespace screen {
namespace {

constexpr std::uint32_t overlayColour = 0x80402010; // half transparent, premultiplied

int differenceOf(std::uint32_t a, std::uint32_t b) {
    int largest = 0;
    for (const unsigned shift : {0U, 8U, 16U})
        largest = std::max(
            largest, std::abs(static_cast<int>(a >> shift & 255U) - static_cast<int>(b >> shift & 255U)));
    return largest;
}

PictureShape shapeOf(Size size, PixelFormat format) {
    PictureShape shape;
    shape.width = size.width;
    shape.height = size.height;
    shape.format = format;
    return shape;
}

} // namespace

TestLook::TestLook(Size screen, PixelFormat format) : TestLook(screen, shapeOf(screen, format), Fit::bars) {}

TestLook::TestLook(Size screen, const PictureShape& shape, Fit fit) : bytes_(bytesOf(shape)) {
    look_.info.number = 1;
    look_.blanked = false;
    look_.screen = screenOf(screen);
    look_.shape = shape;
    look_.placing = place(shape, look_.screen, fit);
    const Rectangle at{screen.width / 8, screen.height / 8, screen.width / 2, screen.height / 16 + 1};
    overlays_.push_back(
        {at, std::vector<std::uint32_t>(static_cast<std::size_t>(at.width) * at.height, overlayColour),
         nextOverlayVersion()});
    look_.overlays = &overlays_;
    look_.overlayVersion = overlays_[0].version;
    fill();
}

void TestLook::next() {
    ++look_.info.number;
    ++step_;
    fill();
}

// Gradients without sharp edges, where the ways of scaling would differ most.
void TestLook::fill() {
    const PlaneLayouts planes = planesOf(look_.shape);
    for (int i = 0; i < planeCount(look_.shape.format); ++i) {
        const PlaneLayout& plane = planes[static_cast<std::size_t>(i)];
        const std::size_t pixel = look_.shape.format == PixelFormat::bgrx             ? 4
                                  : i == 1 && look_.shape.format == PixelFormat::nv12 ? 2
                                                                                      : 1;
        for (int y = 0; y < plane.rows; ++y)
            for (std::size_t x = 0; x < plane.rowBytes; ++x) {
                const std::size_t part = x % pixel;
                const std::size_t across = (x / pixel) * pixel * 160 / plane.rowBytes;
                const std::size_t down =
                    static_cast<std::size_t>(y) * 40 / static_cast<std::size_t>(plane.rows);
                bytes_[plane.offset + plane.stride * static_cast<std::size_t>(y) + x] =
                    static_cast<std::uint8_t>(24 + (part % 2 == 1 || i == 2 ? 160 - across : across) + down +
                                              static_cast<std::size_t>(step_ % 8));
            }
    }
}

PictureView TestLook::view() const {
    PictureView view;
    view.shape = look_.shape;
    const PlaneLayouts planes = planesOf(look_.shape);
    for (std::size_t i = 0; i < static_cast<std::size_t>(planeCount(look_.shape.format)); ++i) {
        view.plane[i] = bytes_.data() + planes[i].offset;
        view.stride[i] = planes[i].stride;
    }
    return view;
}

Part TestLook::part() {
    const Size& size = look_.screen.size;
    return {&look_, {0, 0, size.width, size.height}, [this](const auto& visit) {
                visit(view());
                return true;
            }};
}

std::vector<std::uint32_t> TestLook::painted() const {
    Picture picture;
    const PictureView seen = view();
    Painter().paint(look_.blanked ? nullptr : &seen, look_, picture);
    return std::move(picture.pixels);
}

double meanDifference(const std::vector<std::uint32_t>& a, const std::vector<std::uint32_t>& b) {
    if (a.size() != b.size() || a.empty())
        return 255;
    double sum = 0;
    for (std::size_t i = 0; i < a.size(); ++i)
        sum += differenceOf(a[i], b[i]);
    return sum / static_cast<double>(a.size());
}

double shareAbove(int limit, const std::vector<std::uint32_t>& a, const std::vector<std::uint32_t>& b) {
    if (a.size() != b.size() || a.empty())
        return 1;
    std::size_t count = 0;
    for (std::size_t i = 0; i < a.size(); ++i)
        count += differenceOf(a[i], b[i]) > limit ? 1 : 0;
    return static_cast<double>(count) / static_cast<double>(a.size());
}

} // namespace screen

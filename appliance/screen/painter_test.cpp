#include "appliance/screen/painter.h"

#include "appliance/mark/frame_mark.h"
#include "appliance/screen/reference_picture.h"

#include <gtest/gtest.h>

#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <tuple>

namespace screen {
namespace {

using reference::compare;
using reference::difference;
using reference::Differences;
using reference::frameOf;
using reference::pixelOf;
using reference::Samples;
using reference::shapeOf;
using reference::zonePlate;

constexpr Size fullHd{1920, 1080};
const std::vector<PixelFormat> formats{PixelFormat::i420, PixelFormat::nv12, PixelFormat::bgrx};

Look lookAt(const PictureShape& shape, const ScreenShape& screen, Fit fit = Fit::bars) {
    Look look;
    look.info.number = 1;
    look.blanked = false;
    look.screen = screen;
    look.shape = shape;
    look.placing = place(shape, screen, fit);
    return look;
}

Picture painted(const Frame& frame, const Look& look) {
    Painter painter;
    Picture picture;
    picture.pixels.assign(17, 0x123456); // leftovers of another picture
    const PictureView view = frame.view();
    painter.paint(&view, look, picture);
    return picture;
}

Picture paintedOn(Size screen, const Frame& frame, Fit fit = Fit::bars) {
    return painted(frame, lookAt(frame.shape, screenOf(screen), fit));
}

std::uint32_t pixel(const Picture& picture, int x, int y) {
    return picture.pixels.at(static_cast<std::size_t>(y) * static_cast<std::size_t>(picture.width()) +
                             static_cast<std::size_t>(x));
}

bool isBlack(const Picture& picture, const Rectangle& at) {
    for (int y = at.y; y < at.y + at.height; ++y)
        for (int x = at.x; x < at.x + at.width; ++x)
            if (pixel(picture, x, y) != 0)
                return false;
    return true;
}

TEST(Painter, PictureOfTheScreensSizeIsShownPixelForPixel) {
    const Samples samples = zonePlate(fullHd.width, fullHd.height);
    for (const PixelFormat format : formats) {
        const PictureShape shape = shapeOf(fullHd.width, fullHd.height, format);
        const Picture picture = paintedOn(fullHd, frameOf(shape, samples));
        const Differences differences =
            compare(picture, [&](int x, int y) { return pixelOf(shape, samples, x, y); });
        EXPECT_LE(differences.largest, format == PixelFormat::bgrx ? 0 : 1);
        EXPECT_LE(differences.average, 0.1);
    }
}

TEST(Painter, GreyPixelsAreExact) {
    for (const PixelFormat format : {PixelFormat::i420, PixelFormat::nv12})
        for (const ColourMatrix matrix : {ColourMatrix::bt601, ColourMatrix::bt709})
            for (const bool full : {false, true}) {
                PictureShape shape = shapeOf(256, 120, format);
                shape.matrix = matrix;
                shape.fullRange = full;
                const Samples samples = [](int plane, int x, int) { return plane == 0 ? x : 128; };
                const Picture picture = paintedOn({256, 120}, frameOf(shape, samples));
                for (int x = 0; x < 256; ++x)
                    EXPECT_EQ(pixel(picture, x, 7), pixelOf(shape, samples, x, 7)) << "Y " << x;
            }
}

// All Y, U and V in steps that include both ends.
TEST(Painter, ColoursOfEachMatrixAndRangeAreExactToOne) {
    for (const ColourMatrix matrix : {ColourMatrix::bt601, ColourMatrix::bt709})
        for (const bool full : {false, true}) {
            PictureShape shape = shapeOf(512, 2 * 18 * 18, PixelFormat::i420);
            shape.matrix = matrix;
            shape.fullRange = full;
            const Samples samples = [](int plane, int x, int y) {
                if (plane == 0)
                    return x / 2;
                return plane == 1 ? y / 18 * 15 : y % 18 * 15;
            };
            const Picture picture = paintedOn({shape.width, shape.height}, frameOf(shape, samples));
            const Differences differences =
                compare(picture, [&](int x, int y) { return pixelOf(shape, samples, x, y); });
            EXPECT_LE(differences.largest, 1);
            EXPECT_LE(differences.average, 0.1);
        }
}

// The encoder's mark in a picture that is not scaled: its cells begin and end at the same pixels.
TEST(Painter, CellsOfTheFrameMarkAreShownPixelForPixel) {
    std::vector<std::uint8_t> marked(std::size_t(4) * fullHd.width * fullHd.height);
    drawFrameMark(marked.data(), fullHd.width, fullHd.height, 4 * fullHd.width, {7, 0xa5c3});
    const auto bright = [&](int x, int y) {
        return marked[4 * (static_cast<std::size_t>(y) * fullHd.width + static_cast<std::size_t>(x))] > 128;
    };
    const Samples samples = [&](int plane, int x, int y) {
        return plane == 0 ? bright(x, y) ? 235 : 16 : 128;
    };
    for (const PixelFormat format : {PixelFormat::i420, PixelFormat::nv12}) {
        const Picture picture =
            paintedOn(fullHd, frameOf(shapeOf(fullHd.width, fullHd.height, format), samples));
        const Differences differences =
            compare(picture, [&](int x, int y) { return bright(x, y) ? 0xffffffU : 0U; });
        EXPECT_EQ(differences.largest, 0);
        const auto mark = readFrameMark(reinterpret_cast<const std::uint8_t*>(picture.pixels.data()),
                                        picture.width(), picture.height(), 4 * picture.width());
        EXPECT_EQ(mark, (FrameMark{7, 0xa5c3}));
    }
}

TEST(Painter, BarsAreBlackAndThePictureIsBetweenThem) {
    const Samples white = [](int plane, int, int) { return plane == 0 ? 235 : 128; };
    for (const PixelFormat format : {PixelFormat::i420, PixelFormat::nv12}) {
        const Picture wide = paintedOn({1280, 720}, frameOf(shapeOf(640, 480, format), white));
        EXPECT_TRUE(isBlack(wide, {0, 0, 160, 720}));
        EXPECT_TRUE(isBlack(wide, {1120, 0, 160, 720}));
        for (const int x : {160, 640, 1119})
            for (const int y : {0, 360, 719})
                EXPECT_EQ(pixel(wide, x, y), 0xffffffU);
        const Picture high = paintedOn({720, 576}, frameOf(shapeOf(1280, 720, format), white));
        EXPECT_TRUE(isBlack(high, {0, 0, 720, 72}));
        EXPECT_TRUE(isBlack(high, {0, 504, 720, 72}));
        EXPECT_EQ(pixel(high, 0, 72), 0xffffffU);
        EXPECT_EQ(pixel(high, 719, 503), 0xffffffU);
    }
}

// Four colours, one for each quarter of the picture.
Samples quarters(int width, int height) {
    return [=](int plane, int x, int y) {
        const int half = plane == 0 ? 2 : 4;
        const int quarter = (x >= width / half ? 1 : 0) + (y >= height / half ? 2 : 0);
        constexpr int values[4][3] = {{81, 90, 240}, {145, 54, 34}, {41, 240, 110}, {235, 128, 128}};
        return values[quarter][plane];
    };
}
constexpr std::uint32_t red = 0xff0000;
constexpr std::uint32_t green = 0x00ff00;
constexpr std::uint32_t blue = 0x0000ff;
constexpr std::uint32_t white = 0xffffff;

// The colours at the corners: top left, top right, bottom left, bottom right.
void expectCorners(const Picture& picture, const Rectangle& at, const std::array<std::uint32_t, 4>& colours) {
    const int right = at.x + at.width - 1;
    const int bottom = at.y + at.height - 1;
    EXPECT_LE(difference(pixel(picture, at.x, at.y), colours[0]), 3);
    EXPECT_LE(difference(pixel(picture, right, at.y), colours[1]), 3);
    EXPECT_LE(difference(pixel(picture, at.x, bottom), colours[2]), 3);
    EXPECT_LE(difference(pixel(picture, right, bottom), colours[3]), 3);
}

TEST(Painter, TurnsClockwise) {
    const std::vector<std::pair<Turn, std::array<std::uint32_t, 4>>> turns{
        {Turn::none, {red, green, blue, white}},
        {Turn::right, {blue, red, white, green}},
        {Turn::half, {white, blue, green, red}},
        {Turn::left, {green, white, red, blue}},
    };
    for (const PixelFormat format : {PixelFormat::i420, PixelFormat::nv12})
        for (const auto& [turn, corners] : turns)
            for (const Size screen : {Size{320, 240}, Size{240, 320}, Size{641, 359}, Size{1920, 1080}}) {
                PictureShape shape = shapeOf(320, 240, format);
                shape.turn = turn;
                const Frame frame = frameOf(shape, quarters(320, 240));
                const Look look = lookAt(shape, screenOf(screen));
                expectCorners(painted(frame, look), look.placing.to, corners);
            }
}

TEST(Painter, TurnedPictureOfTheScreensSizeIsShownPixelForPixel) {
    const Samples samples = zonePlate(317, 203);
    for (const PixelFormat format : formats) {
        PictureShape shape = shapeOf(317, 203, format);
        shape.turn = Turn::right;
        const Picture right = paintedOn({203, 317}, frameOf(shape, samples));
        EXPECT_LE(compare(right, [&](int x, int y) { return pixelOf(shape, samples, y, 202 - x); }).largest,
                  1);
        shape.turn = Turn::left;
        const Picture left = paintedOn({203, 317}, frameOf(shape, samples));
        EXPECT_LE(compare(left, [&](int x, int y) { return pixelOf(shape, samples, 316 - y, x); }).largest,
                  1);
        shape.turn = Turn::half;
        const Picture half = paintedOn({317, 203}, frameOf(shape, samples));
        EXPECT_LE(
            compare(half, [&](int x, int y) { return pixelOf(shape, samples, 316 - x, 202 - y); }).largest,
            1);
    }
}

TEST(Painter, CropCutsBothSides) {
    const Samples samples = zonePlate(1920, 1088);
    for (const PixelFormat format : formats) {
        const PictureShape shape = shapeOf(1920, 1088, format);
        const Picture picture = paintedOn(fullHd, frameOf(shape, samples), Fit::crop);
        const Differences differences =
            compare(picture, [&](int x, int y) { return pixelOf(shape, samples, x, y + 4); });
        EXPECT_LE(differences.largest, format == PixelFormat::bgrx ? 0 : 1);
    }
    const Frame frame = frameOf(shapeOf(640, 480, PixelFormat::nv12), quarters(640, 480));
    expectCorners(paintedOn({1280, 720}, frame, Fit::crop), {0, 0, 1280, 720}, {red, green, blue, white});
}

TEST(Painter, FillStretches) {
    const Frame frame = frameOf(shapeOf(640, 480, PixelFormat::i420), quarters(640, 480));
    const Picture picture = paintedOn({1280, 720}, frame, Fit::fill);
    expectCorners(picture, {0, 0, 1280, 720}, {red, green, blue, white});
    EXPECT_LE(difference(pixel(picture, 630, 350), red), 3);
    EXPECT_LE(difference(pixel(picture, 650, 370), white), 3);
}

// A slope: after any scaling the brightness is that of the place.
TEST(Painter, ScaledPicturesKeepTheirPlacesAndColours) {
    for (const PixelFormat format : formats)
        for (const Size size : {Size{720, 576}, Size{1921, 541}, Size{333, 77}, Size{4096, 420}}) {
            const Samples samples = [=](int plane, int x, int y) {
                if (plane != 0 && format != PixelFormat::bgrx)
                    return 128;
                return 20 + x * 100 / size.width + y * 100 / size.height;
            };
            PictureShape shape = shapeOf(size.width, size.height, format);
            shape.fullRange = true;
            const Picture picture = paintedOn({640, 360}, frameOf(shape, samples), Fit::fill);
            const Differences differences = compare(picture, [&](int x, int y) {
                const auto grey =
                    static_cast<std::uint32_t>(20 + (x + 0.5) * 100 / 640 + (y + 0.5) * 100 / 360);
                return grey << 16 | grey << 8 | grey;
            });
            EXPECT_LE(differences.largest, 4) << size.width << 'x' << size.height;
            EXPECT_LE(differences.average, 1.5) << size.width << 'x' << size.height;
        }
}

TEST(Painter, PictureThatIsNotOfTheLookIsNotDrawn) {
    const Samples bright = [](int plane, int, int) { return plane == 0 ? 200 : 128; };
    const Frame frame = frameOf(shapeOf(640, 480, PixelFormat::i420), bright);
    const Size screen{1280, 720};
    EXPECT_TRUE(isBlack(painted(frame, lookAt(shapeOf(320, 240, PixelFormat::i420), screenOf(screen))),
                        {0, 0, 1280, 720}));
    Look look = lookAt(frame.shape, screenOf(screen));
    look.placing.from.width = 641;
    EXPECT_TRUE(isBlack(painted(frame, look), {0, 0, 1280, 720}));
    look = lookAt(frame.shape, screenOf(screen));
    look.placing.to.x = -1;
    EXPECT_TRUE(isBlack(painted(frame, look), {0, 0, 1280, 720}));
    look = lookAt(frame.shape, screenOf(screen));
    look.blanked = true;
    EXPECT_TRUE(isBlack(painted(frame, look), {0, 0, 1280, 720}));
    Painter painter;
    Picture picture;
    PictureView view = frame.view();
    view.plane[2] = nullptr;
    painter.paint(&view, lookAt(frame.shape, screenOf(screen)), picture);
    EXPECT_TRUE(isBlack(picture, {0, 0, 1280, 720}));
}

// The picture ends right before memory that can't be read, as it may in the store's file.
class GuardedPicture {
public:
    explicit GuardedPicture(const PictureShape& shape) {
        const std::size_t page = 4096;
        const std::size_t bytes = bytesOf(shape);
        readable_ = (bytes + page - 1) / page * page;
        memory_ = static_cast<std::uint8_t*>(
            mmap(nullptr, readable_ + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        mprotect(memory_ + readable_, page, PROT_NONE);
        std::memset(memory_, 0x80, readable_);
        view = viewOf(shape, memory_ + readable_ - bytes);
    }
    GuardedPicture(const GuardedPicture&) = delete;
    GuardedPicture& operator=(const GuardedPicture&) = delete;
    ~GuardedPicture() { munmap(memory_, readable_ + 4096); }

    PictureView view;

private:
    std::size_t readable_;
    std::uint8_t* memory_;
};

TEST(Painter, NothingIsReadBehindThePicture) {
    for (const PixelFormat format : formats)
        for (const Size size :
             {Size{1, 1}, Size{2, 2}, Size{3, 5}, Size{63, 3}, Size{65, 33}, Size{719, 577}})
            for (const Size screen : {Size{160, 120}, Size{721, 575}, Size{1280, 720}})
                for (const auto& [fit, turn] :
                     {std::pair{Fit::bars, Turn::none}, std::pair{Fit::fill, Turn::left},
                      std::pair{Fit::crop, Turn::none}}) {
                    PictureShape shape = shapeOf(size.width, size.height, format);
                    shape.turn = turn;
                    const GuardedPicture picture(shape);
                    const Look look = lookAt(shape, screenOf(screen), fit);
                    Painter painter;
                    Picture out;
                    painter.paint(&picture.view, look, out);
                    EXPECT_NE(pixel(out, look.placing.to.x, look.placing.to.y), 0U);
                }
}

TEST(Painter, PaintsIntoMemoryOfTheCaller) {
    const Frame frame = frameOf(shapeOf(64, 48, PixelFormat::i420), quarters(64, 48));
    const Look look = lookAt(frame.shape, screenOf({160, 120}));
    const Picture wanted = painted(frame, look);
    constexpr std::size_t stride = 200;
    constexpr std::uint32_t untouched = 0xabcdef01;
    std::vector<std::uint32_t> window(stride * 121, untouched);
    Painter painter;
    const PictureView view = frame.view();
    painter.paint(&view, look, window.data(), stride * sizeof window[0]);
    for (std::size_t y = 0; y < 121; ++y)
        for (std::size_t x = 0; x < stride; ++x)
            ASSERT_EQ(window[y * stride + x], x < 160 && y < 120 ? wanted.pixels[y * 160 + x] : untouched);
}

TEST(Overlay, IsLaidOverThePictureByItsTransparency) {
    OverlayImage image{{1, 1, 3, 1}, {0xffff0000, 0x80004000, 0}, 1};
    std::vector<std::uint32_t> pixels(5 * 3, 0x0080ff80);
    layOver(image, {5, 3}, pixels.data(), 5);
    EXPECT_EQ(pixels[5], 0x0080ff80U);
    EXPECT_EQ(pixels[6], 0x00ff0000U);
    EXPECT_LE(difference(pixels[7], 0x40bf40), 1);
    EXPECT_EQ(pixels[8], 0x0080ff80U);
}

TEST(Overlay, IsCutAtTheEdgesOfTheScreen) {
    for (const Rectangle& at : {Rectangle{-2, -1, 4, 3}, Rectangle{3, 1, 4, 3}, Rectangle{-9, 0, 4, 3},
                                Rectangle{0, 7, 4, 3}, Rectangle{-1, -1, 9, 9}}) {
        const OverlayImage image{
            at, std::vector<std::uint32_t>(std::size_t(1) * at.width * at.height, 0xffffffff), 1};
        std::vector<std::uint32_t> pixels(5 * 3, 0);
        layOver(image, {5, 3}, pixels.data(), 5);
        for (int y = 0; y < 3; ++y)
            for (int x = 0; x < 5; ++x) {
                const bool covered = x >= at.x && x < at.x + at.width && y >= at.y && y < at.y + at.height;
                EXPECT_EQ(pixels[static_cast<std::size_t>(5 * y + x)], covered ? 0xffffffU : 0U);
            }
    }
}

} // namespace
} // namespace screen

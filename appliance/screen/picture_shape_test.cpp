#include "appliance/screen/picture_shape.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace screen {
namespace {

PictureShape shaped(int width, int height, PixelFormat format) {
    PictureShape shape;
    shape.width = width;
    shape.height = height;
    shape.format = format;
    return shape;
}

TEST(PictureShape, ColourHasHalfTheSizeRoundedUp) {
    const PlaneLayouts i420 = planesOf(shaped(719, 575, PixelFormat::i420));
    EXPECT_EQ(i420[0].rows, 575);
    EXPECT_EQ(i420[0].rowBytes, 719U);
    EXPECT_EQ(i420[1].rows, 288);
    EXPECT_EQ(i420[1].rowBytes, 360U);
    EXPECT_EQ(i420[2].rows, 288);
    EXPECT_EQ(i420[2].rowBytes, 360U);
    const PlaneLayouts nv12 = planesOf(shaped(719, 575, PixelFormat::nv12));
    EXPECT_EQ(nv12[1].rows, 288);
    EXPECT_EQ(nv12[1].rowBytes, 720U);
    EXPECT_EQ(nv12[2].rows, 0);
    const PlaneLayouts bgrx = planesOf(shaped(719, 575, PixelFormat::bgrx));
    EXPECT_EQ(bgrx[0].rowBytes, 2876U);
    EXPECT_EQ(bgrx[1].rows, 0);
}

TEST(PictureShape, PlanesAreAlignedAndDoNotOverlap) {
    for (const PixelFormat format : {PixelFormat::bgrx, PixelFormat::i420, PixelFormat::nv12})
        for (const int width : {1, 2, 3, 31, 33, 352, 719, 1919, 4096})
            for (const int height : {1, 2, 3, 575, 4095}) {
                const PictureShape shape = shaped(width, height, format);
                std::size_t end = 0;
                for (const PlaneLayout& plane : planesOf(shape)) {
                    if (plane.rows == 0)
                        continue;
                    EXPECT_EQ(plane.offset % 32, 0U);
                    EXPECT_EQ(plane.stride % 32, 0U);
                    EXPECT_GE(plane.stride, plane.rowBytes);
                    EXPECT_GE(plane.offset, end);
                    end = plane.offset + plane.stride * static_cast<std::size_t>(plane.rows);
                }
                EXPECT_EQ(bytesOf(shape), end);
            }
}

TEST(PictureShape, NoPictureIsLargerThanTheLargestOneInBgrx) {
    for (const PixelFormat format : {PixelFormat::bgrx, PixelFormat::i420, PixelFormat::nv12})
        EXPECT_LE(bytesOf(shaped(maxPictureSide, maxPictureSide, format)), std::size_t(64) << 20);
}

TEST(PictureShape, EachFieldOutOfItsRangeIsAFault) {
    const PictureShape good = shaped(720, 576, PixelFormat::i420);
    EXPECT_EQ(faultOf(good), nullptr);
    EXPECT_NE(faultOf(PictureShape{}), nullptr) << "no size";
    const int lowest = std::numeric_limits<int>::min();
    const int highest = std::numeric_limits<int>::max();
    for (const int bad : {0, -1, maxPictureSide + 1, lowest, highest}) {
        PictureShape wide = good;
        wide.width = bad;
        EXPECT_NE(faultOf(wide), nullptr) << bad;
        PictureShape high = good;
        high.height = bad;
        EXPECT_NE(faultOf(high), nullptr) << bad;
    }
    for (const int bad : {0, -1, maxPixelAspect + 1, lowest, highest}) {
        PictureShape numerator = good;
        numerator.aspectNumerator = bad;
        EXPECT_NE(faultOf(numerator), nullptr) << bad;
        PictureShape denominator = good;
        denominator.aspectDenominator = bad;
        EXPECT_NE(faultOf(denominator), nullptr) << bad;
    }
    for (const std::uint32_t bad : {0U, 4U, 0xffffffffU}) {
        PictureShape format = good;
        format.format = static_cast<PixelFormat>(bad);
        EXPECT_NE(faultOf(format), nullptr) << bad;
        PictureShape matrix = good;
        matrix.matrix = static_cast<ColourMatrix>(bad);
        EXPECT_NE(faultOf(matrix), nullptr) << bad;
    }
    PictureShape turned = good;
    turned.turn = static_cast<Turn>(4);
    EXPECT_NE(faultOf(turned), nullptr);
    for (const Turn turn : {Turn::none, Turn::right, Turn::half, Turn::left}) {
        turned.turn = turn;
        EXPECT_EQ(faultOf(turned), nullptr);
    }
}

TEST(PictureShape, ViewNeedsEveryPlaneAndWholeRows) {
    for (const PixelFormat format : {PixelFormat::bgrx, PixelFormat::i420, PixelFormat::nv12}) {
        const PictureShape shape = shaped(33, 9, format);
        const std::vector<std::uint8_t> bytes(bytesOf(shape));
        const PictureView good = viewOf(shape, bytes.data());
        EXPECT_EQ(faultOf(good), nullptr);
        for (std::size_t plane = 0; plane < static_cast<std::size_t>(planeCount(format)); ++plane) {
            PictureView missing = good;
            missing.plane[plane] = nullptr;
            EXPECT_NE(faultOf(missing), nullptr);
            PictureView narrow = good;
            narrow.stride[plane] = planesOf(shape)[plane].rowBytes - 1;
            EXPECT_NE(faultOf(narrow), nullptr);
        }
        for (std::size_t plane = static_cast<std::size_t>(planeCount(format)); plane < 3; ++plane)
            EXPECT_EQ(good.plane[plane], nullptr);
    }
}

TEST(PictureShape, TelevisionIsFourToThreeInBothModes) {
    for (const VideoMode mode : {VideoMode::pal, VideoMode::ntsc}) {
        const PictureShape shape = televisionShape(mode);
        EXPECT_EQ(faultOf(shape), nullptr);
        EXPECT_EQ(shape.width, formatOf(mode).width);
        EXPECT_EQ(shape.height, formatOf(mode).height);
        EXPECT_EQ(3 * shape.width * shape.aspectNumerator, 4 * shape.height * shape.aspectDenominator);
    }
}

} // namespace
} // namespace screen

// JPEG pictures of all samplings and sizes, whole ones and broken ones.
#include "appliance/players/decoding/jpeg_decoder.h"

#include "appliance/streams/jpeg_check.h"
#include "tests/support/packed_jpeg.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace player {
namespace {

struct Making {
    int width = 64;
    int height = 48;
    J_COLOR_SPACE space = JCS_YCbCr;
    int horizontal = 2; // luma samples for each sample of colour
    int vertical = 2;
    bool progressive = false;
    bool arithmetic = false; // instead of Huffman codes
};

// Four quarters: red, green; blue, white.
std::uint32_t quarterAt(const Making& making, int x, int y) {
    const bool left = x < making.width / 2;
    if (y < making.height / 2)
        return left ? 0xff0000U : 0x00ff00U;
    return left ? 0x0000ffU : 0xffffffU;
}

std::vector<unsigned char> rowOf(const Making& making, int y, bool four) {
    std::vector<unsigned char> row;
    for (int x = 0; x < making.width; ++x) {
        const std::uint32_t colour = quarterAt(making, x, y);
        for (const int shift : {16, 8, 0})
            row.push_back(static_cast<unsigned char>(colour >> shift));
        if (four)
            row.push_back(0);
    }
    return row;
}

std::string jpegOf(const Making& making) {
    const bool four = making.space == JCS_CMYK;
    const std::vector<unsigned char> upper = rowOf(making, 0, four);
    const std::vector<unsigned char> lower = rowOf(making, making.height - 1, four);
    return packing::packedJpeg(
        {.width = making.width,
         .height = making.height,
         .components = four ? 4 : 3,
         .space = four ? JCS_CMYK : JCS_RGB,
         .row = [&](int y) { return y < making.height / 2 ? upper.data() : lower.data(); }},
        [&](jpeg_compress_struct& encoder) {
            jpeg_set_colorspace(&encoder, making.space);
            jpeg_set_quality(&encoder, 95, TRUE);
            if (making.space == JCS_YCbCr) {
                encoder.comp_info[0].h_samp_factor = making.horizontal;
                encoder.comp_info[0].v_samp_factor = making.vertical;
            }
            encoder.arith_code = making.arithmetic ? TRUE : FALSE;
            if (making.progressive)
                jpeg_simple_progression(&encoder);
        });
}

struct Yuv {
    int y, u, v;
};

Yuv at(const screen::PictureView& picture, int x, int y) {
    const auto sample = [&](std::size_t plane, int column, int row) {
        return int{picture.plane[plane][static_cast<std::size_t>(row) * picture.stride[plane] +
                                        static_cast<std::size_t>(column)]};
    };
    return {sample(0, x, y), sample(1, x / 2, y / 2), sample(2, x / 2, y / 2)};
}

void expectQuarters(const screen::PictureView& picture, const std::string& what) {
    const int right = picture.shape.width - 1;
    const int bottom = picture.shape.height - 1;
    const auto isNear = [&](int x, int y, const Yuv& wanted) {
        const Yuv seen = at(picture, x, y);
        EXPECT_NEAR(seen.y, wanted.y, 12) << what << " at " << x << "," << y;
        EXPECT_NEAR(seen.u, wanted.u, 12) << what << " at " << x << "," << y;
        EXPECT_NEAR(seen.v, wanted.v, 12) << what << " at " << x << "," << y;
    };
    isNear(0, 0, {76, 85, 255});
    isNear(right, 0, {150, 44, 21});
    isNear(0, bottom, {29, 255, 107});
    isNear(right, bottom, {255, 128, 128});
    isNear(right / 2 - 4, bottom / 2 - 4, {76, 85, 255});
    isNear(right / 2 + 4, bottom / 2 + 4, {255, 128, 128});
}

TEST(JpegDecoder, BringsEverySamplingAndSizeToI420) {
    JpegDecoder decoder;
    for (const auto& [width, height] : {std::pair{64, 48}, {640, 480}, {65, 49}, {127, 33}})
        for (const auto& [horizontal, vertical] : {std::pair{2, 2}, {2, 1}, {1, 1}, {1, 2}, {4, 1}, {4, 2}}) {
            const Making making{
                .width = width, .height = height, .horizontal = horizontal, .vertical = vertical};
            const auto picture = decoder.decode(jpegOf(making));
            ASSERT_TRUE(picture);
            EXPECT_EQ(screen::faultOf(*picture), nullptr);
            EXPECT_EQ(picture->shape.width, width);
            EXPECT_EQ(picture->shape.height, height);
            EXPECT_EQ(picture->shape.format, screen::PixelFormat::i420);
            EXPECT_TRUE(picture->shape.fullRange);
            expectQuarters(*picture, std::to_string(width) + "x" + std::to_string(height) + " " +
                                         std::to_string(horizontal) + ":" + std::to_string(vertical));
        }
}

TEST(JpegDecoder, TakesArithmeticCoding) {
    JpegDecoder decoder;
    for (const bool progressive : {false, true}) {
        const std::string jpeg = jpegOf({.progressive = progressive, .arithmetic = true});
        EXPECT_TRUE(streams::wholeJpeg(jpeg)) << "the gateway and the player take it";
        const auto picture = decoder.decode(jpeg);
        ASSERT_TRUE(picture);
        expectQuarters(*picture, progressive ? "progressive" : "sequential");
    }
}

TEST(JpegDecoder, TakesProgressiveAndRedGreenBlue) {
    JpegDecoder decoder;
    for (const Making& making : {Making{.progressive = true}, Making{.space = JCS_RGB},
                                 Making{.width = 33, .height = 65, .space = JCS_RGB}}) {
        const auto picture = decoder.decode(jpegOf(making));
        ASSERT_TRUE(picture);
        expectQuarters(*picture, "progressive or RGB");
    }
}

TEST(JpegDecoder, GreyPicturesHaveNoColour) {
    JpegDecoder decoder;
    ASSERT_TRUE(decoder.decode(jpegOf({}))) << "a picture with colours before";
    const auto picture = decoder.decode(jpegOf({.width = 63, .height = 31, .space = JCS_GRAYSCALE}));
    ASSERT_TRUE(picture);
    for (const auto& [x, y] : {std::pair{0, 0}, {62, 0}, {0, 30}, {62, 30}}) {
        EXPECT_EQ(at(*picture, x, y).u, 128);
        EXPECT_EQ(at(*picture, x, y).v, 128);
    }
    EXPECT_NEAR(at(*picture, 0, 0).y, 76, 12);
}

TEST(JpegDecoder, LargePicturesAreHalved) {
    JpegDecoder decoder;
    for (const auto& [horizontal, vertical] : {std::pair{2, 2}, {2, 1}, {1, 1}}) {
        const auto picture = decoder.decode(
            jpegOf({.width = 7680, .height = 4320, .horizontal = horizontal, .vertical = vertical}));
        ASSERT_TRUE(picture);
        EXPECT_EQ(picture->shape.width, 3840);
        EXPECT_EQ(picture->shape.height, 2160);
        EXPECT_EQ(screen::faultOf(*picture), nullptr);
        expectQuarters(*picture, "8K");
    }
    const auto narrow = decoder.decode(jpegOf({.width = 4099, .height = 32}));
    ASSERT_TRUE(narrow);
    EXPECT_EQ(narrow->shape.width, 2050);
    EXPECT_EQ(narrow->shape.height, 16);
}

TEST(JpegDecoder, RefusesWhatIsTooLargeOrNotOfACamera) {
    JpegDecoder decoder;
    EXPECT_FALSE(decoder.decode(jpegOf({.width = 8208, .height = 16})));
    EXPECT_FALSE(decoder.decode(jpegOf({.width = 4112, .height = 16, .progressive = true})));
    EXPECT_FALSE(decoder.decode(jpegOf({.space = JCS_CMYK})));
    EXPECT_TRUE(decoder.decode(jpegOf({}))) << "the next one";
}

TEST(JpegDecoder, BrokenPicturesDoNoHarm) {
    JpegDecoder decoder;
    const std::string whole = jpegOf({.width = 160, .height = 120});
    for (const std::string& broken : {std::string(), std::string("\xff\xd8"), std::string("GIF89a"),
                                      std::string("\xff\xd8\xff\xd9"), std::string(1000, '\xff')})
        EXPECT_FALSE(decoder.decode(broken));
    for (std::size_t size = 1; size < whole.size(); size += 7)
        decoder.decode(whole.substr(0, size) + "\xff\xd9");
    std::uint32_t random = 1;
    for (int i = 0; i < 500; ++i) {
        std::string changed = whole;
        for (int change = 0; change < 3; ++change) {
            random = random * 1664525 + 1013904223;
            // The size stays small: the test is about broken data.
            const std::size_t place = 200 + (random >> 8) % (whole.size() - 200);
            changed[place] = static_cast<char>(random);
        }
        const auto picture = decoder.decode(changed);
        EXPECT_TRUE(!picture || screen::faultOf(*picture) == nullptr);
    }
    const auto picture = decoder.decode(whole);
    ASSERT_TRUE(picture);
    expectQuarters(*picture, "after the broken ones");
}

} // namespace
} // namespace player

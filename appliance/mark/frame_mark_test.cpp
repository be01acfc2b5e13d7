#include "appliance/mark/frame_mark.h"

#include "tests/support/packed_jpeg.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace {

struct Picture {
    int width, height;
    std::vector<std::uint8_t> bytes;

    Picture(int w, int h) : width(w), height(h), bytes(static_cast<std::size_t>(w) * h * 4) {}
    int stride() const { return width * 4; }
    std::uint8_t* at(int x, int y) { return &bytes[(static_cast<std::size_t>(y) * width + x) * 4]; }
    const std::uint8_t* at(int x, int y) const {
        return &bytes[(static_cast<std::size_t>(y) * width + x) * 4];
    }
};

// A picture to compress: a colour gradient with stripes.
Picture scene(int width, int height) {
    Picture picture(width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            std::uint8_t* pixel = picture.at(x, y);
            pixel[0] = static_cast<std::uint8_t>(x * 255 / width);
            pixel[1] = static_cast<std::uint8_t>(y * 255 / height);
            pixel[2] = static_cast<std::uint8_t>((x / 8 % 2) * 200);
        }
    }
    return picture;
}

Picture marked(int width, int height, FrameMark mark) {
    Picture picture = scene(width, height);
    drawFrameMark(picture.bytes.data(), width, height, picture.stride(), mark);
    return picture;
}

std::optional<FrameMark> read(const Picture& picture) {
    return readFrameMark(picture.bytes.data(), picture.width, picture.height, picture.stride());
}

// The luma plane of the picture, in the narrow range of video.
std::vector<std::uint8_t> lumaOf(const Picture& picture) {
    std::vector<std::uint8_t> luma;
    for (std::size_t i = 0; i < picture.bytes.size(); i += 4)
        luma.push_back(static_cast<std::uint8_t>(
            16 + (picture.bytes[i] * 25 + picture.bytes[i + 1] * 129 + picture.bytes[i + 2] * 66) / 256));
    return luma;
}

TEST(FrameMarkInLuma, IsReadLikeThatInColours) {
    for (const auto& [width, height] : {std::pair{720, 576}, {1920, 1080}, {353, 289}}) {
        const Picture picture = marked(width, height, {17, 4711});
        const std::vector<std::uint8_t> luma = lumaOf(picture);
        EXPECT_EQ(readFrameMarkInLuma(luma.data(), width, height, width), (FrameMark{17, 4711})) << width;
        const std::vector<std::uint8_t> plain = lumaOf(scene(width, height));
        EXPECT_FALSE(readFrameMarkInLuma(plain.data(), width, height, width));
    }
}

Picture scaledNearest(const Picture& from, int width, int height) {
    Picture to(width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x)
            std::copy_n(from.at(x * from.width / width, y * from.height / height), 4, to.at(x, y));
    }
    return to;
}

Picture scaledBilinear(const Picture& from, int width, int height) {
    Picture to(width, height);
    const auto sample = [](int position, int size, int fromSize, int& low, int& high) {
        const double at = std::clamp((position + 0.5) * fromSize / size - 0.5, 0.0, fromSize - 1.0);
        low = static_cast<int>(at);
        high = std::min(low + 1, fromSize - 1);
        return at - low;
    };
    for (int y = 0; y < height; ++y) {
        int top = 0;
        int bottom = 0;
        const double down = sample(y, height, from.height, top, bottom);
        for (int x = 0; x < width; ++x) {
            int left = 0;
            int right = 0;
            const double across = sample(x, width, from.width, left, right);
            for (int c = 0; c < 4; ++c) {
                const double upper = from.at(left, top)[c] * (1 - across) + from.at(right, top)[c] * across;
                const double lower =
                    from.at(left, bottom)[c] * (1 - across) + from.at(right, bottom)[c] * across;
                to.at(x, y)[c] = static_cast<std::uint8_t>(std::lround(upper * (1 - down) + lower * down));
            }
        }
    }
    return to;
}

Picture throughJpeg(const Picture& from, int quality) {
    const std::string jpeg = packing::packedJpeg(
        {.width = from.width,
         .height = from.height,
         .components = 4,
         .space = JCS_EXT_BGRX,
         .row = [&](int y) { return from.at(0, y); }},
        [quality](jpeg_compress_struct& encoder) { jpeg_set_quality(&encoder, quality, TRUE); });

    jpeg_error_mgr errors;
    jpeg_decompress_struct in{};
    in.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&in);
    jpeg_mem_src(&in, reinterpret_cast<const unsigned char*>(jpeg.data()), jpeg.size());
    jpeg_read_header(&in, TRUE);
    in.out_color_space = JCS_EXT_BGRX;
    jpeg_start_decompress(&in);
    Picture to(from.width, from.height);
    while (in.output_scanline < in.output_height) {
        JSAMPROW row = to.at(0, static_cast<int>(in.output_scanline));
        jpeg_read_scanlines(&in, &row, 1);
    }
    jpeg_finish_decompress(&in);
    jpeg_destroy_decompress(&in);
    return to;
}

struct Size {
    int width, height;
};
constexpr Size sizes[] = {{160, 120}, {176, 144}, {320, 240},  {352, 288},  {640, 480},
                          {720, 480}, {720, 576}, {1024, 768}, {1280, 720}, {1920, 1080}};
constexpr FrameMark marks[] = {{0, 0}, {1, 1}, {7, 0x1234}, {170, 0x5555}, {85, 0xAAAA}, {255, 0xFFFF}};

} // namespace

TEST(FrameMark, IsReadBackAtEverySizeAndForEveryValueOfSourceAndCounter) {
    for (const Size& size : sizes) {
        for (const FrameMark& mark : marks)
            EXPECT_EQ(read(marked(size.width, size.height, mark)), mark) << size.width << "x" << size.height;
    }
    for (int source = 0; source < 256; ++source) {
        const FrameMark mark{static_cast<std::uint8_t>(source), static_cast<std::uint16_t>(source * 257 + 3)};
        EXPECT_EQ(read(marked(160, 120, mark)), mark);
    }
}

TEST(FrameMark, SurvivesScalingFromAnySizeToAnyScreen) {
    for (const Size& from : sizes) {
        const Picture picture = marked(from.width, from.height, marks[2]);
        for (const Size& to : {Size{160, 120}, Size{352, 288}, Size{720, 480}, Size{720, 576}}) {
            EXPECT_EQ(read(scaledNearest(picture, to.width, to.height)), marks[2])
                << from.width << "x" << from.height << " nearest to " << to.width << "x" << to.height;
            EXPECT_EQ(read(scaledBilinear(picture, to.width, to.height)), marks[2])
                << from.width << "x" << from.height << " bilinear to " << to.width << "x" << to.height;
        }
    }
    EXPECT_EQ(read(scaledBilinear(marked(160, 120, marks[3]), 1920, 1080)), marks[3]);
    EXPECT_EQ(read(scaledNearest(marked(176, 144, marks[3]), 1920, 1080)), marks[3]);
}

TEST(FrameMark, SurvivesJpegAtEverySize) {
    for (const Size& size : sizes) {
        for (const int quality : {30, 50, 85}) {
            for (const FrameMark& mark : marks)
                EXPECT_EQ(read(throughJpeg(marked(size.width, size.height, mark), quality)), mark)
                    << size.width << "x" << size.height << " quality " << quality;
        }
    }
}

TEST(FrameMark, SurvivesScalingBetweenTwoRoundsOfJpeg) {
    for (const Size& size : sizes) {
        for (const Size& screen : {Size{720, 576}, Size{720, 480}}) {
            const Picture sent = throughJpeg(marked(size.width, size.height, marks[2]), 50);
            const Picture shown = throughJpeg(scaledBilinear(sent, screen.width, screen.height), 70);
            EXPECT_EQ(read(shown), marks[2]) << size.width << "x" << size.height;
        }
    }
}

TEST(FrameMark, SurvivesAChangeOfBrightnessAndContrast) {
    for (const int offset : {0, 100}) {
        Picture picture = marked(720, 576, marks[4]);
        for (std::uint8_t& byte : picture.bytes)
            byte = static_cast<std::uint8_t>(byte / 2 + offset);
        EXPECT_EQ(read(picture), marks[4]);
    }
}

TEST(FrameMark, PlainPicturesHaveNone) {
    for (int grey = 0; grey < 256; grey += 15) {
        Picture picture(320, 240);
        std::fill(picture.bytes.begin(), picture.bytes.end(), static_cast<std::uint8_t>(grey));
        EXPECT_EQ(read(picture), std::nullopt);
    }
    for (const Size& size : sizes)
        EXPECT_EQ(read(scene(size.width, size.height)), std::nullopt);
}

TEST(FrameMark, NoiseHasNone) {
    std::mt19937 random(20261101);
    for (int round = 0; round < 500; ++round) {
        Picture picture(160, 120);
        for (std::uint8_t& byte : picture.bytes)
            byte = static_cast<std::uint8_t>(random());
        EXPECT_EQ(read(picture), std::nullopt);
    }
}

TEST(FrameMark, BlocksOfBlackAndWhiteAsLargeAsACellHaveNone) {
    std::mt19937 random(4711);
    for (int round = 0; round < 2000; ++round) {
        Picture picture(320, 200);
        const auto shift = static_cast<int>(random() % 10);
        for (int y = 180; y < 200; y += 10) {
            for (int x = 0; x < 320; x += 10) {
                const auto grey = static_cast<std::uint8_t>((random() & 1) != 0 ? 235 : 16);
                for (int dy = 0; dy < 10; ++dy) {
                    for (int dx = 0; dx < 10; ++dx)
                        std::fill_n(picture.at((x + dx + shift) % 320, y + dy), 3, grey);
                }
            }
        }
        EXPECT_EQ(read(picture), std::nullopt);
    }
}

TEST(FrameMark, AnyOneDamagedBitIsNoticed) {
    const Picture whole = marked(640, 480, marks[2]);
    for (int bit = 0; bit < 32; ++bit) {
        Picture damaged = whole;
        for (int y = 432; y < 480; ++y) {
            for (int x = bit * 20; x < bit * 20 + 20; ++x)
                std::for_each_n(damaged.at(x, y), 3,
                                [](std::uint8_t& c) { c = static_cast<std::uint8_t>(255 - c); });
        }
        EXPECT_EQ(read(damaged), std::nullopt) << "bit " << bit;
    }
}

TEST(FrameMark, LeavesThePictureAboveItAlone) {
    Picture picture = marked(720, 576, marks[1]);
    const Picture before = scene(720, 576);
    for (int y = 0; y < 518; ++y)
        ASSERT_TRUE(std::equal(picture.at(0, y), picture.at(0, y) + picture.stride(), before.at(0, y))) << y;
}

TEST(FrameMark, KeepsToTheStride) {
    const int stride = 720 * 4 + 64;
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(stride) * 576, 77);
    drawFrameMark(bytes.data(), 720, 576, stride, marks[2]);
    EXPECT_EQ(readFrameMark(bytes.data(), 720, 576, stride), marks[2]);
    for (int y = 0; y < 576; ++y) {
        for (int x = 720 * 4; x < stride; ++x)
            ASSERT_EQ(bytes[static_cast<std::size_t>(y) * stride + x], 77);
    }
}

TEST(FrameMark, PicturesThatAreTooSmallAreLeftAlone) {
    for (const Size& size : {Size{0, 0}, Size{1, 1}, Size{63, 400}, Size{400, 39}}) {
        Picture picture(size.width, size.height);
        const std::vector<std::uint8_t> before = picture.bytes;
        drawFrameMark(picture.bytes.data(), size.width, size.height, picture.stride(), marks[2]);
        EXPECT_EQ(picture.bytes, before);
        EXPECT_EQ(read(picture), std::nullopt);
    }
}

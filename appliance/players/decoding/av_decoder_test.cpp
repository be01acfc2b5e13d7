// H.264 and MPEG-4 pictures of all kinds, whole ones and broken ones. libavcodec's encoders make them.
#include "appliance/players/decoding/av_decoder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/opt.h>
}

namespace player {
namespace {

struct Making {
    const char* encoder = "libx264";
    const char* decoder = "h264";
    int width = 320;
    int height = 240;
    AVPixelFormat format = AV_PIX_FMT_YUV420P;
    AVRational aspect{0, 1};
    AVColorSpace matrix = AVCOL_SPC_UNSPECIFIED;
    AVColorRange range = AVCOL_RANGE_UNSPECIFIED;
    int pictures = 5;
};

// Each picture is of one brightness, which tells its number.
int lumaOf(int number) {
    return 40 + 20 * number;
}

// The planes of a picture in any of the formats of these tests.
void paint(AVFrame& frame, int number) {
    const bool deep = frame.format == AV_PIX_FMT_YUV420P10;
    const int colourRows = frame.format == AV_PIX_FMT_YUV422P ? frame.height : (frame.height + 1) / 2;
    for (int plane = 0; plane < 3; ++plane) {
        const int value = plane == 0 ? lumaOf(number) : plane == 1 ? 90 : 160;
        const int rows = plane == 0 ? frame.height : colourRows;
        for (int y = 0; y < rows; ++y)
            for (int x = 0; x < frame.linesize[plane] / (deep ? 2 : 1); ++x) {
                std::uint8_t* row =
                    frame.data[plane] + static_cast<std::ptrdiff_t>(y) * frame.linesize[plane];
                if (deep)
                    reinterpret_cast<std::uint16_t*>(row)[x] = static_cast<std::uint16_t>(4 * value);
                else
                    row[x] = static_cast<std::uint8_t>(value);
            }
    }
}

std::vector<std::string> unitsOf(const Making& making) {
    std::vector<std::string> units;
    const AVCodec* codec = avcodec_find_encoder_by_name(making.encoder);
    if (codec == nullptr)
        return units;
    AVCodecContext* context = avcodec_alloc_context3(codec);
    context->width = making.width;
    context->height = making.height;
    context->pix_fmt = making.format;
    context->time_base = {1, 25};
    context->sample_aspect_ratio = making.aspect;
    context->colorspace = making.matrix;
    context->color_range = making.range;
    context->gop_size = 3;
    context->max_b_frames = 0;
    context->bit_rate = 4'000'000;
    context->thread_count = 1;
    av_opt_set(context->priv_data, "preset", "ultrafast", 0);
    av_opt_set(context->priv_data, "tune", "zerolatency", 0);
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    frame->format = making.format;
    frame->width = making.width;
    frame->height = making.height;
    if (avcodec_open2(context, codec, nullptr) == 0 && av_frame_get_buffer(frame, 0) == 0)
        for (int i = 0; i <= making.pictures; ++i) {
            if (i < making.pictures) {
                av_frame_make_writable(frame);
                paint(*frame, i);
                frame->pts = i;
            }
            avcodec_send_frame(context, i < making.pictures ? frame : nullptr);
            while (avcodec_receive_packet(context, packet) == 0) {
                units.emplace_back(reinterpret_cast<const char*>(packet->data), packet->size);
                av_packet_unref(packet);
            }
        }
    av_frame_free(&frame);
    av_packet_free(&packet);
    avcodec_free_context(&context);
    return units;
}

bool decode(AvDecoder& decoder, const std::string& unit, const AvDecoder::Give& give) {
    return decoder.decode(reinterpret_cast<const std::uint8_t*>(unit.data()), unit.size(), give);
}

int at(const screen::PictureView& picture, std::size_t plane, int x, int y) {
    return picture
        .plane[plane][static_cast<std::size_t>(y) * picture.stride[plane] + static_cast<std::size_t>(x)];
}

// Decodes all and checks every picture's brightness and colour. Returns the last shape.
screen::PictureShape expectAll(const Making& making) {
    screen::PictureShape shape;
    const std::vector<std::string> units = unitsOf(making);
    EXPECT_EQ(units.size(), static_cast<std::size_t>(making.pictures)) << making.encoder;
    AvDecoder decoder;
    EXPECT_TRUE(decoder.open(making.decoder, nullptr, 0));
    int number = 0;
    for (const std::string& unit : units)
        EXPECT_TRUE(decode(decoder, unit, [&](const screen::PictureView& picture) {
            shape = picture.shape;
            EXPECT_EQ(screen::faultOf(picture), nullptr);
            const int right = shape.width - 1;
            const int bottom = shape.height - 1;
            for (const auto& [x, y] : {std::pair{0, 0}, {right, 0}, {0, bottom}, {right, bottom}})
                EXPECT_NEAR(at(picture, 0, x, y), lumaOf(number), 4) << number;
            EXPECT_NEAR(at(picture, 1, right / 2, bottom / 2), 90, 4);
            EXPECT_NEAR(at(picture, 2, right / 2, bottom / 2), 160, 4);
            ++number;
        }));
    EXPECT_EQ(number, making.pictures) << "each picture comes with its own unit";
    return shape;
}

TEST(AvDecoder, GivesEachPictureWithoutDelay) {
    const screen::PictureShape shape = expectAll({});
    EXPECT_EQ(shape.width, 320);
    EXPECT_EQ(shape.height, 240);
    EXPECT_EQ(shape.format, screen::PixelFormat::i420);
    EXPECT_EQ(shape.matrix, screen::ColourMatrix::bt601);
    EXPECT_FALSE(shape.fullRange);
    expectAll({.encoder = "mpeg4", .decoder = "mpeg4"});
}

TEST(AvDecoder, TellsTheShapeOfTheStream) {
    const screen::PictureShape wide = expectAll({.width = 720,
                                                 .height = 576,
                                                 .aspect = {64, 45},
                                                 .matrix = AVCOL_SPC_BT709,
                                                 .range = AVCOL_RANGE_JPEG});
    EXPECT_EQ(wide.aspectNumerator, 64);
    EXPECT_EQ(wide.aspectDenominator, 45);
    EXPECT_EQ(wide.matrix, screen::ColourMatrix::bt709);
    EXPECT_TRUE(wide.fullRange);
    EXPECT_EQ(expectAll({.width = 1280, .height = 720}).matrix, screen::ColourMatrix::bt709)
        << "a stream that says nothing";
}

TEST(AvDecoder, CropsToTheVisiblePicture) {
    const screen::PictureShape shape = expectAll({.width = 1918, .height = 1078, .pictures = 2});
    EXPECT_EQ(shape.width, 1918);
    EXPECT_EQ(shape.height, 1078);
}

TEST(AvDecoder, ConvertsOtherFormats) {
    for (const AVPixelFormat format : {AV_PIX_FMT_YUV422P, AV_PIX_FMT_YUV420P10}) {
        const screen::PictureShape shape = expectAll({.format = format});
        EXPECT_EQ(shape.format, screen::PixelFormat::i420);
        EXPECT_EQ(shape.width, 320);
    }
}

TEST(AvDecoder, LargePicturesAreScaledDown) {
    const screen::PictureShape shape = expectAll({.width = 7680, .height = 4320, .pictures = 1});
    EXPECT_EQ(shape.width, 3840);
    EXPECT_EQ(shape.height, 2160);
}

TEST(AvDecoder, SizeMayChangeInTheStream) {
    AvDecoder decoder;
    ASSERT_TRUE(decoder.open("h264", nullptr, 0));
    for (const auto& [width, height] : {std::pair{320, 240}, {640, 360}, {176, 144}, {1280, 720}}) {
        int pictures = 0;
        for (const std::string& unit : unitsOf({.width = width, .height = height, .pictures = 3}))
            decode(decoder, unit, [&, wide = width, high = height](const screen::PictureView& picture) {
                EXPECT_EQ(picture.shape.width, wide);
                EXPECT_EQ(picture.shape.height, high);
                ++pictures;
            });
        EXPECT_EQ(pictures, 3);
    }
}

TEST(AvDecoder, BrokenUnitsDoNoHarm) {
    for (const Making& making : {Making{}, Making{.encoder = "mpeg4", .decoder = "mpeg4"}}) {
        AvDecoder decoder;
        ASSERT_TRUE(decoder.open(making.decoder, nullptr, 0));
        const auto check = [](const screen::PictureView& picture) {
            EXPECT_EQ(screen::faultOf(picture), nullptr);
        };
        EXPECT_FALSE(decode(decoder, "", check));
        decode(decoder, "garbage", check);
        decode(decoder, std::string(5000, '\xff'), check);
        const std::vector<std::string> units = unitsOf(making);
        std::uint32_t random = 1;
        for (int i = 0; i < 300; ++i) {
            std::string unit = units[static_cast<std::size_t>(i) % units.size()];
            for (int change = 0; change < 4; ++change) {
                random = random * 1664525 + 1013904223;
                unit[(random >> 8) % unit.size()] = static_cast<char>(random);
            }
            decode(decoder, i % 5 == 0 ? unit.substr(0, unit.size() / 2) : unit, check);
        }
        int whole = 0;
        for (const std::string& unit : units)
            decode(decoder, unit, [&](const screen::PictureView&) { ++whole; });
        EXPECT_GT(whole, 0) << "after the broken ones";
    }
}

TEST(AvDecoder, UnknownDecoderIsRefused) {
    AvDecoder decoder;
    EXPECT_FALSE(decoder.open("no-such-codec", nullptr, 0));
    EXPECT_FALSE(decode(decoder, "unit", [](const screen::PictureView&) {}));
}

} // namespace
} // namespace player

#include "appliance/encoder/codecs/codec_stream.h"

#include "appliance/encoder/pictures/drawn_sources.h"
#include "appliance/mark/frame_mark.h"

#include <gtest/gtest.h>
#include <tuple>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libswscale/swscale.h>
}

namespace {

constexpr std::chrono::seconds patience(10);
constexpr Codec codecs[] = {Codec::Mpeg4, Codec::H264, Codec::Mpeg2};

// Decodes pictures and reads their frame marks.
class Decoder {
public:
    explicit Decoder(Codec codec) {
        const AVCodecID id = codec == Codec::Mpeg4   ? AV_CODEC_ID_MPEG4
                             : codec == Codec::Mpeg2 ? AV_CODEC_ID_MPEG2VIDEO
                                                     : AV_CODEC_ID_H264;
        context_ = avcodec_alloc_context3(avcodec_find_decoder(id));
        context_->flags |= AV_CODEC_FLAG_LOW_DELAY;
        context_->thread_count = 1;
        EXPECT_EQ(avcodec_open2(context_, nullptr, nullptr), 0);
        frame_ = av_frame_alloc();
        packet_ = av_packet_alloc();
    }
    ~Decoder() {
        avcodec_free_context(&context_);
        av_frame_free(&frame_);
        av_packet_free(&packet_);
    }
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;

    std::optional<FrameMark> markOf(const AccessUnit& unit) {
        av_new_packet(packet_, static_cast<int>(unit.bytes.size()));
        std::copy(unit.bytes.begin(), unit.bytes.end(), packet_->data);
        avcodec_send_packet(context_, packet_);
        av_packet_unref(packet_);
        if (avcodec_receive_frame(context_, frame_) < 0)
            return std::nullopt;
        Picture picture;
        picture.resize(frame_->width, frame_->height);
        SwsContext* converter = sws_getContext(
            frame_->width, frame_->height, static_cast<AVPixelFormat>(frame_->format), frame_->width,
            frame_->height, AV_PIX_FMT_BGR0, SWS_FAST_BILINEAR, nullptr, nullptr, nullptr);
        std::uint8_t* const rows[] = {picture.bytes.data()};
        const int strides[] = {picture.stride()};
        sws_scale(converter, frame_->data, frame_->linesize, 0, frame_->height, rows, strides);
        sws_freeContext(converter);
        return readFrameMark(picture.bytes.data(), picture.width, picture.height, picture.stride());
    }

private:
    AVCodecContext* context_;
    AVFrame* frame_;
    AVPacket* packet_;
};

} // namespace

TEST(CodecStream, MarksSurviveEveryCodecFromTheFirstPictureOn) {
    for (const Codec codec : codecs) {
        TestSource source("Name", 320, 240, 50, 33);
        CodecStream stream(source, {codec, 12, true, 0}, 320, 240);
        CodecReader reader(stream);
        Decoder decoder(codec);
        int last = -1;
        for (int i = 0; i < 15; ++i) {
            const AccessUnitPtr unit = reader.next(patience);
            ASSERT_TRUE(unit);
            EXPECT_TRUE(i > 0 || unit->key);
            const auto mark = decoder.markOf(*unit);
            if (!mark && codec == Codec::Mpeg2 && i == 0)
                continue; // the decoder holds it back
            ASSERT_TRUE(mark.has_value()) << static_cast<int>(codec) << " picture " << i;
            EXPECT_EQ(mark->source, 33);
            EXPECT_GT(mark->counter, last);
            last = mark->counter;
        }
    }
}

TEST(CodecStream, ALowBitrateLeavesMarksReadable) {
    for (const Codec codec : codecs) {
        TestSource source("Name", 320, 240, 50, 33);
        CodecStream stream(source, {codec, 12, true, 400}, 320, 240);
        CodecReader reader(stream);
        Decoder decoder(codec);
        int readable = 0;
        for (int i = 0; i < 20; ++i)
            readable += decoder.markOf(*reader.next(patience)).has_value() ? 1 : 0;
        EXPECT_GE(readable, 19) << static_cast<int>(codec);
    }
}

TEST(CodecStream, KeyPicturesComeAtTheInterval) {
    for (const Codec codec : codecs) {
        TestSource source("Name", 160, 120, 60, 1);
        CodecStream stream(source, {codec, 5, true, 0}, 160, 120);
        CodecReader reader(stream);
        for (int i = 0; i < 11; ++i)
            EXPECT_EQ(reader.next(patience)->key, i % 5 == 0) << static_cast<int>(codec) << " picture " << i;
    }
}

TEST(CodecStream, ANewReaderBeginsWithAKeyPictureAtOnceOrAtTheInterval) {
    for (const bool atOnce : {true, false}) {
        TestSource source("Name", 160, 120, 60, 1);
        CodecStream stream(source, {Codec::Mpeg4, 30, atOnce, 0}, 160, 120);
        CodecReader first(stream);
        for (int i = 0; i < 3; ++i)
            ASSERT_TRUE(first.next(patience));
        CodecReader second(stream);
        const AccessUnitPtr unit = second.next(patience);
        ASSERT_TRUE(unit);
        EXPECT_TRUE(unit->key);
        if (atOnce) {
            EXPECT_LT(unit->number, 20U);
        } else {
            EXPECT_EQ(unit->number, 31U);
        }
    }
}

TEST(CodecStream, AReaderThatFellBehindContinuesAtAKeyPicture) {
    TestSource source("Name", 160, 120, 60, 1);
    CodecStream stream(source, {Codec::Mpeg4, 12, true, 0}, 160, 120);
    CodecReader slow(stream);
    const AccessUnitPtr before = slow.next(patience);
    CodecReader quick(stream);
    std::uint64_t newest = 0;
    while (newest < before->number + 100) // more than is kept
        newest = quick.next(patience)->number;
    const AccessUnitPtr after = slow.next(patience);
    ASSERT_TRUE(after);
    EXPECT_TRUE(after->key);
    EXPECT_GT(after->number + 24, newest) << "the newest key picture, not the oldest one";
    EXPECT_EQ(slow.next(patience)->number, after->number + 1);
}

TEST(CodecStream, WelcomeNewcomerMakesAKeyPicture) {
    TestSource source("Name", 160, 120, 25, 1);
    CodecStream stream(source, {Codec::Mpeg4, 250, true, 0}, 160, 120);
    CodecReader reader(stream);
    ASSERT_TRUE(reader.next(patience));
    ASSERT_FALSE(reader.next(patience)->key);
    stream.welcomeNewcomer();
    bool key = false;
    for (int i = 0; i < 50 && !key; ++i) {
        const AccessUnitPtr unit = reader.next(patience);
        ASSERT_TRUE(unit);
        key = unit->key;
    }
    EXPECT_TRUE(key);
}

TEST(CodecStream, StoppedReadersDoNotWait) {
    TestSource source("Name", 160, 120, 1, 1);
    CodecStream stream(source, {Codec::Mpeg4, 12, true, 0}, 160, 120);
    CodecReader reader(stream);
    ASSERT_TRUE(reader.next(patience));
    stream.stopReaders();
    EXPECT_FALSE(reader.next(patience));
}

#include "appliance/input/depacketizer.h"

#include <gtest/gtest.h>
#include <utility>
#include <vector>

namespace input {
namespace {

using Pictures = std::vector<std::pair<std::string, std::int64_t>>;

std::string bytes(std::initializer_list<int> values) {
    std::string text;
    for (const int value : values)
        text += static_cast<char>(value);
    return text;
}

std::string packet(int sequence, std::uint32_t time, bool last, const std::string& payload) {
    return bytes({0x80, last ? 0xe0 : 0x60, sequence >> 8, sequence & 255, static_cast<int>(time >> 24),
                  static_cast<int>(time >> 16 & 255), static_cast<int>(time >> 8 & 255),
                  static_cast<int>(time & 255), 0, 0, 0, 1}) +
           payload;
}

class Depacketizing {
public:
    explicit Depacketizing(const char* codec)
        : depacketizer_(Depacketizer::make(codec, [this](std::string_view picture, std::int64_t time) {
              pictures.emplace_back(picture, time);
          })) {}
    void add(int sequence, std::uint32_t time, bool last, const std::string& payload) {
        depacketizer_->add(packet(sequence, time, last, payload));
    }

    Pictures pictures;

private:
    std::unique_ptr<Depacketizer> depacketizer_;
};

TEST(Depacketizer, KnowsThreeCodecs) {
    for (const char* codec : {"VP8", "VP9", "AV1"})
        EXPECT_NE(Depacketizer::make(codec, {}), nullptr) << codec;
    EXPECT_EQ(Depacketizer::make("H264", {}), nullptr);
}

TEST(Depacketizer, PutsVp8PicturesTogether) {
    Depacketizing vp8("VP8");
    vp8.add(65535, 100, false, bytes({0x90, 0x80, 0x81, 0x02}) + "first "); // with a long picture number
    vp8.add(0, 100, true, bytes({0x00}) + "second");
    vp8.add(1, 200, true, bytes({0x10}) + "next");
    EXPECT_EQ(vp8.pictures, (Pictures{{"first second", 0}, {"next", 100}}));
}

TEST(Depacketizer, LeavesOutAPictureWithAMissingPacket) {
    Depacketizing vp8("VP8");
    vp8.add(1, 100, false, bytes({0x10}) + "a");
    vp8.add(3, 100, true, bytes({0x00}) + "c");
    vp8.add(4, 200, false, bytes({0x10}) + "whole");
    vp8.add(5, 200, true, bytes({0x00}) + "!");
    vp8.add(7, 300, true, bytes({0x00}) + "without its begin");
    EXPECT_EQ(vp8.pictures, (Pictures{{"whole!", 100}}));
}

TEST(Depacketizer, TimesGoOnBeyond32Bits) {
    Depacketizing vp8("VP8");
    vp8.add(1, 0xfffffff0, true, bytes({0x10}) + "a");
    vp8.add(2, 0x10, true, bytes({0x10}) + "b");
    EXPECT_EQ(vp8.pictures, (Pictures{{"a", 0}, {"b", 0x20}}));
}

TEST(Depacketizer, PutsVp9PicturesTogether) {
    Depacketizing vp9("VP9");
    // A number of two bytes, flexible mode without references, and the structure of one layer with one size.
    vp9.add(1, 0, false, bytes({0x80 | 0x10 | 0x08 | 0x02, 0x81, 0x02, 0x10, 1, 0x60, 1, 0x20}) + "key ");
    vp9.add(2, 0, true, bytes({0x80 | 0x10 | 0x04, 0x81, 0x02}) + "picture");
    // Layers in the other mode have one byte more.
    vp9.add(3, 900, true, bytes({0x80 | 0x40 | 0x20 | 0x08 | 0x04, 0x03, 0x00, 0x07}) + "next");
    EXPECT_EQ(vp9.pictures, (Pictures{{"key picture", 0}, {"next", 900}}));
}

TEST(Depacketizer, GivesAv1UnitsTheirLengths) {
    const std::string delimiter = bytes({0x12, 0});
    Depacketizing av1("AV1");
    // Two units, the first with its length: a sequence header (type 1) and a frame (type 6) that the next packet ends.
    av1.add(1, 0, false, bytes({0x40 | 0x20 | 0x08, 3, 0x08, 'a', 'b', 0x30, 'c'}));
    av1.add(2, 0, true, bytes({0x80 | 0x10, 'd', 'e'}));
    EXPECT_EQ(av1.pictures, (Pictures{{delimiter + bytes({0x0a, 2, 'a', 'b', 0x32, 3, 'c', 'd', 'e'}), 0}}));
    // All have lengths; a delimiter is left out; one unit has an extension, another its own length already.
    av1.add(3, 9, true, bytes({0x00, 1, 0x10, 3, 0x34, 7, 'x', 3, 0x32, 1, 'y'}));
    ASSERT_EQ(av1.pictures.size(), 2U);
    EXPECT_EQ(av1.pictures[1].first, delimiter + bytes({0x36, 7, 1, 'x', 0x32, 1, 'y'}));
}

TEST(Depacketizer, LongAv1UnitsHaveLongLengths) {
    Depacketizing av1("AV1");
    av1.add(1, 0, true, bytes({0x10, 0x30}) + std::string(300, 'x'));
    ASSERT_EQ(av1.pictures.size(), 1U);
    EXPECT_EQ(av1.pictures[0].first.substr(2, 3), bytes({0x32, 0xac, 0x02}));
}

TEST(Depacketizer, AnythingElseIsLeftOut) {
    for (const char* codec : {"VP8", "VP9", "AV1"}) {
        Depacketizing any(codec);
        for (int first = 0; first < 256; ++first) {
            for (std::size_t length = 0; length < 6; ++length)
                any.add(first, 0, length % 2 == 0, std::string(length, static_cast<char>(first)));
        }
        const auto depacketizer = Depacketizer::make(codec, [](std::string_view, std::int64_t) {});
        for (std::size_t length = 0; length < 40; ++length)
            depacketizer->add(std::string(length, '\xbf'));
    }
}

} // namespace
} // namespace input

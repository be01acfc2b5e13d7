#include "appliance/players/decoding/mpeg2_units.h"

#include "appliance/players/decoding/mpeg2_packets.h"
#include "appliance/streams/rtp/rtp_packet.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace player {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string bytes(std::initializer_list<int> values) {
    std::string text;
    for (const int value : values)
        text += static_cast<char>(value);
    return text;
}

// 64 pixels wide, 48 high: three rows.
const std::string sequence = bytes({0, 0, 1, 0xb3, 0x04, 0x00, 0x30, 0x13, 0xff, 0xff, 0xe0, 0x18});
std::string picture(int type) {
    return bytes({0, 0, 1, 0x00, 0x00, type << 3, 0xff, 0xf8});
}
std::string coding(int structure) {
    return bytes({0, 0, 1, 0xb5, 0x8f, 0xff, 0xf0 | structure, 0x80, 0x00});
}
std::string slice(int row) {
    return bytes({0, 0, 1, row, 0x22, 0x33});
}
const std::string rows = slice(1) + slice(2) + slice(3);
const std::string key = sequence + picture(1) + rows;
const std::string delta = picture(2) + rows;

class Mpeg2UnitsTest : public testing::TestWithParam<std::size_t> {
protected:
    void feed(const std::string& stream, bool shown = true) {
        for (std::size_t at = 0; at < stream.size(); at += GetParam())
            units_.feed(std::string_view(stream).substr(at, GetParam()), shown);
    }
    std::vector<std::string> taken_;
    std::vector<bool> shown_;
    Mpeg2Units units_{[this](const std::string& unit, bool shown) {
        taken_.push_back(unit);
        shown_.push_back(shown);
    }};
};
INSTANTIATE_TEST_SUITE_P(InPieces, Mpeg2UnitsTest, testing::Values(1, 2, 5, 1000));

TEST_P(Mpeg2UnitsTest, APictureEndsWhereTheNextOneBegins) {
    feed(key + delta + key + delta);
    EXPECT_THAT(taken_, ElementsAre(key, delta, key));
    units_.end();
    EXPECT_THAT(taken_, ElementsAre(key, delta, key, delta));
    units_.end();
    EXPECT_EQ(taken_.size(), 4U);
}

TEST_P(Mpeg2UnitsTest, NothingComesBeforeTheFirstKeyPicture) {
    feed(slice(2) + slice(3) + delta + delta + key + delta);
    EXPECT_THAT(taken_, ElementsAre(key));
}

TEST_P(Mpeg2UnitsTest, TheFirstPictureIsThereWithItsLastRow) {
    feed(delta + sequence + picture(1) + coding(3) + slice(1) + slice(2));
    EXPECT_EQ(units_.firstPicture(), "");
    feed(slice(3));
    EXPECT_EQ(units_.firstPicture(), sequence + picture(1) + coding(3) + rows);
    EXPECT_THAT(taken_, IsEmpty());
    feed(delta);
    EXPECT_THAT(taken_, ElementsAre(sequence + picture(1) + coding(3) + rows));
    EXPECT_EQ(units_.firstPicture(), "");
    feed(key);
    EXPECT_EQ(units_.firstPicture(), "");
}

TEST_P(Mpeg2UnitsTest, AFieldIsNoFirstPicture) {
    feed(sequence + picture(1) + coding(1) + rows);
    EXPECT_EQ(units_.firstPicture(), "");
}

TEST_P(Mpeg2UnitsTest, ALossDropsThePresentPictureOnly) {
    feed(key + picture(2) + slice(1));
    units_.lose();
    feed(slice(3) + delta + key);
    EXPECT_THAT(taken_, ElementsAre(key, delta));
}

TEST_P(Mpeg2UnitsTest, AUnitTellsWhetherItIsShown) {
    feed(key, false);
    units_.end();
    feed(delta, true);
    units_.end();
    EXPECT_THAT(shown_, ElementsAre(false, true));
}

TEST_P(Mpeg2UnitsTest, OddBytesDoNoHarm) {
    std::string odd;
    for (int i = 0; i < 4000; ++i)
        odd += i % 9 < 2 ? '\0' : static_cast<char>(i * 5 % 251);
    odd += bytes({0, 0, 1});
    feed(odd);
    units_.end();
    units_.lose();
    EXPECT_EQ(units_.firstPicture(), "");
    feed(key);
    units_.end();
    ASSERT_FALSE(taken_.empty());
    EXPECT_EQ(taken_.back(), key);
}

TEST(Mpeg2UnitsMemory, IsBounded) {
    std::size_t longest = 0;
    Mpeg2Units units([&](const std::string& unit, bool) { longest = std::max(longest, unit.size()); });
    for (int i = 0; i < 200; ++i)
        units.feed(std::string(100'000, 'x'));
    units.end();
    EXPECT_LE(longest, Mpeg2Units::unitLimit);
}

std::string rtp(std::uint16_t sequenceNumber, bool marker, const std::string& payload) {
    return streams::makeRtp({.marker = marker,
                             .payloadType = 32,
                             .sequence = sequenceNumber,
                             .timestamp = 1,
                             .payload = payload});
}

TEST(Mpeg2PacketsTest, TheMarkerEndsAPicture) {
    std::vector<std::string> taken;
    Mpeg2Packets packets(false, [&](const std::string& unit, bool) { taken.push_back(unit); });
    const std::string header(4, '\0');
    packets.add(rtp(1, false, header + sequence + picture(1)));
    packets.add(rtp(2, true, bytes({4, 0, 0, 0}) + header + rows));
    EXPECT_THAT(taken, ElementsAre(key));
    packets.add(rtp(3, false, header + picture(2) + slice(1)));
    packets.add(rtp(5, true, header + slice(3))); // one is missing
    packets.add(rtp(6, true, header + delta));
    EXPECT_THAT(taken, ElementsAre(key, delta));
    packets.add("");
    packets.add(rtp(7, true, ""));
}

} // namespace
} // namespace player

#include "appliance/encoder/codecs/access_unit.h"

#include <gtest/gtest.h>

namespace {

std::string bytes(std::initializer_list<int> values) {
    std::string text;
    for (const int value : values)
        text += static_cast<char>(value);
    return text;
}

} // namespace

TEST(AccessUnit, PiecesAreBetweenStartCodes) {
    const std::string stream = bytes({0, 0, 0, 1, 0x67, 1, 2, 0, 0, 0, 1, 0x68, 3, 0, 0, 1, 0x65, 4, 0});
    const auto pieces = piecesOf(stream);
    ASSERT_EQ(pieces.size(), 3U);
    EXPECT_EQ(pieces[0], bytes({0x67, 1, 2})) << "the zero before a long start code is no part of the piece";
    EXPECT_EQ(pieces[1], bytes({0x68, 3}));
    EXPECT_EQ(pieces[2], bytes({0x65, 4, 0}));
    EXPECT_TRUE(piecesOf("").empty());
    EXPECT_TRUE(piecesOf("no start code").empty());
}

TEST(AccessUnit, KeyPicturesAreKnownByTheirHeaders) {
    EXPECT_TRUE(isKey(Codec::Mpeg4, bytes({0, 0, 1, 0xB0, 1, 0, 0, 1, 0xB6, 0x10})));
    EXPECT_FALSE(isKey(Codec::Mpeg4, bytes({0, 0, 1, 0xB6, 0x50})));
    EXPECT_TRUE(isKey(Codec::Mpeg2, bytes({0, 0, 1, 0xB3, 9, 0, 0, 1, 0x00, 0x00, 0x08, 0xFF})));
    EXPECT_FALSE(isKey(Codec::Mpeg2, bytes({0, 0, 1, 0x00, 0x00, 0x10, 0xFF})));
    EXPECT_TRUE(isKey(Codec::H264, bytes({0, 0, 1, 0x67, 9, 0, 0, 1, 0x65, 7})));
    EXPECT_FALSE(isKey(Codec::H264, bytes({0, 0, 1, 0x41, 7})));
    EXPECT_FALSE(isKey(Codec::H264, ""));
}

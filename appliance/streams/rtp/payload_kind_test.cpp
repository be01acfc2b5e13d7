#include "appliance/streams/rtp/payload_kind.h"

#include "appliance/streams/rtp/picture_size.h"
#include "appliance/streams/rtp/test_packets.h"

#include <gmock/gmock.h>
#include <string>
#include <vector>

namespace streams {
namespace {

using testing::ElementsAre;

TEST(PayloadKind, KeyPicturesOfEachEncoding) {
    EXPECT_TRUE(kindOf(Encoding::h264, keyPicture).keyPicture);
    EXPECT_FALSE(kindOf(Encoding::h264, otherPicture).keyPicture);
    EXPECT_TRUE(kindOf(Encoding::h264, "\x7c\x85xx").keyPicture);  // the first fragment of one
    EXPECT_FALSE(kindOf(Encoding::h264, "\x7c\x05xx").keyPicture); // a later fragment
    EXPECT_TRUE(kindOf(Encoding::h265, std::string("\x26\x01xx", 4)).keyPicture);
    EXPECT_FALSE(kindOf(Encoding::h265, std::string("\x02\x01xx", 4)).keyPicture);
    EXPECT_TRUE(kindOf(Encoding::h265, std::string("\x62\x01\x93xx", 5)).keyPicture);
    EXPECT_TRUE(kindOf(Encoding::mpeg4, std::string("\0\0\1\xb6\x10", 5)).keyPicture);
    EXPECT_FALSE(kindOf(Encoding::mpeg4, std::string("\0\0\1\xb6\x50", 5)).keyPicture);
    EXPECT_TRUE(kindOf(Encoding::jpeg, std::string("\0\0\0\0\1\x50\x10\x10", 8)).keyPicture);
    EXPECT_FALSE(kindOf(Encoding::jpeg, std::string("\0\0\1\0\1\x50\x10\x10", 8)).keyPicture);
    EXPECT_TRUE(kindOf(Encoding::mpeg2, std::string("\0\0\x21\0\0\0\1\xb3", 8)).keyPicture);
    EXPECT_TRUE(kindOf(Encoding::mpeg2, std::string("\0\0\0\0\0\0\1\xb3", 8)).keyPicture); // an empty header
    EXPECT_FALSE(kindOf(Encoding::mpeg2, std::string("\0\0\2\0\0\0\1\0", 8)).keyPicture);
    EXPECT_FALSE(kindOf(Encoding::other, keyPicture).keyPicture);
}

TEST(PayloadKind, SetsAreFoundInAggregates) {
    const std::string aggregate =
        std::string("\x78\0\4", 3) + sequenceSet + std::string("\0\4", 2) + pictureSet;
    EXPECT_TRUE(kindOf(Encoding::h264, aggregate).parameterSet);
    std::vector<std::string> sets;
    parameterSetsIn(Encoding::h264, aggregate, [&](std::string_view set) { sets.emplace_back(set); });
    EXPECT_THAT(sets, ElementsAre(sequenceSet, pictureSet));
}

TEST(PayloadKind, RecoveryPointsAndSlicesWithoutReferences) {
    EXPECT_TRUE(kindOf(Encoding::h264, recoveryMessage).recoveryPoint);
    EXPECT_TRUE(kindOf(Encoding::h264, recoveryMessage).prefix);
    EXPECT_FALSE(kindOf(Encoding::h264, std::string("\x06\x05\x01\x84\x80", 5)).recoveryPoint);
    EXPECT_TRUE(kindOf(Encoding::h264, std::string("\x06\x05\x01x\x06\x01\x84\x80", 8)).recoveryPoint);
    EXPECT_TRUE(kindOf(Encoding::h265, std::string("\x4e\x01\x06\x01\x84\x80", 6)).recoveryPoint);
    EXPECT_TRUE(kindOf(Encoding::h264, intraPicture).intra);
    EXPECT_FALSE(kindOf(Encoding::h264, intraPicture).whole);
    EXPECT_FALSE(kindOf(Encoding::h264, otherPicture).intra);
    EXPECT_TRUE(kindOf(Encoding::h264, "\x7c\x81\xb0x").intra);  // the first fragment of such a slice
    EXPECT_FALSE(kindOf(Encoding::h264, "\x7c\x01\xb0x").intra); // a later one
}

TEST(PayloadKind, DamagedPayloadsAreHarmless) {
    for (const Encoding encoding :
         {Encoding::h264, Encoding::h265, Encoding::mpeg4, Encoding::jpeg, Encoding::mpeg2}) {
        for (const char* bytes :
             {"", "\x78", "\x78\xff", "\x78\xff\xff", "\x60\x01\xff\xff\x01", "\x7c", "\x62\x01"}) {
            kindOf(encoding, bytes);
            parameterSetsIn(encoding, bytes, [](std::string_view) {});
            sizeInPayload(encoding, bytes);
        }
    }
}

// As x265 sends it: one message with user data that is longer than the packet.
TEST(PayloadKind, ASupplementWithALengthBeyondItsEndIsRead) {
    for (std::size_t length = 3; length < 300; ++length) {
        const std::string h265 = std::string("\x4e\1\5\xff", 4) + std::string(length, '\xff');
        EXPECT_FALSE(kindOf(Encoding::h265, h265).keyPicture);
        const std::string h264 =
            std::string("\6\5", 2) + static_cast<char>(length % 255) + std::string(length / 2, 'x');
        EXPECT_FALSE(kindOf(Encoding::h264, h264).keyPicture);
    }
    EXPECT_FALSE(kindOf(Encoding::h265, std::string("\x4e\1\5\3abc", 7)).keyPicture);
}

} // namespace
} // namespace streams

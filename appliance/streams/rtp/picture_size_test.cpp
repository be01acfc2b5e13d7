#include "appliance/streams/rtp/picture_size.h"

#include "appliance/streams/rtp/parameter_sets.h"

#include <gtest/gtest.h>
#include <string>

namespace streams {
namespace {

// The sets are from a software encoder.

TEST(PictureSize, OfMpeg4AndMpeg2) {
    EXPECT_EQ(
        sizeInFormat(
            Encoding::mpeg4,
            "96 profile-level-id=1; config=000001B0F1000001B5A913000001000000012008D48D0800CD0B042414103F"
            "000001B24C61766335392E33372E313030"),
        (PictureSize{352, 288}));
    EXPECT_EQ(sizeInFormat(Encoding::mpeg4, "96 config=000001"), std::nullopt);
    EXPECT_EQ(sizeInFormat(Encoding::mpeg4, "96 config=xyz"), std::nullopt);
    EXPECT_EQ(sizeInFormat(Encoding::h264, "96 packetization-mode=1"), std::nullopt);
    const std::string header("\0\0\1\xb3\x2d\x02\x40\x33", 8);
    EXPECT_EQ(sizeInPayload(Encoding::mpeg2, std::string(4, '\0') + header), (PictureSize{720, 576}));
    EXPECT_EQ(sizeInPayload(Encoding::mpeg2, header.substr(0, 5)), std::nullopt);
}

TEST(PictureSize, OfSequenceSets) {
    const auto size = [](Encoding encoding, const char* set) { return sizeOfSet(encoding, fromBase64(set)); };
    EXPECT_EQ(size(Encoding::h264, "Z2QADayyAsEtgIgAAAMACAAAAwGQeKFSQA=="), (PictureSize{352, 288}));
    EXPECT_EQ(size(Encoding::h264, "Z2QAKKyyAPAET8uAiAAAAwAIAAADAZB4wZJA"), (PictureSize{1920, 1080}));
    EXPECT_EQ(size(Encoding::h265, "QgEBAWAAAAMAkAAAAwAAAwA8oAsIBIWWVmkkyvAWgIAAAAMAgAAADIQ="),
              (PictureSize{352, 288}));
    EXPECT_EQ(size(Encoding::h265, "QgEBAWAAAAMAkAAAAwAAAwB4oAPAgBDlllZpJMrwFoCAAAADAIAAAAyE"),
              (PictureSize{1920, 1080}));
}

TEST(PictureSize, ACutSetHasNone) {
    const std::string set = fromBase64("Z2QADayyAsEtgIgAAAMACAAAAwGQeKFSQA==");
    for (std::size_t length = 0; length < 8; ++length)
        EXPECT_FALSE(sizeOfSet(Encoding::h264, set.substr(0, length))) << length;
}

} // namespace
} // namespace streams

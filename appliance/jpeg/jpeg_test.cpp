#include "appliance/jpeg/jpeg.h"

#include "appliance/jpeg/test_jpeg.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <span>
#include <vector>

namespace {

TEST(Jpeg, KeepsSizeAndColours) {
    std::vector<std::uint32_t> pixels(64 * 48, 0x00c03020);
    const JpegPtr jpeg = encodeJpeg(std::as_bytes(std::span(pixels)), 64, 48, 90);
    ASSERT_NE(jpeg, nullptr);
    const DecodedJpeg decoded = decodeJpeg(*jpeg);
    EXPECT_EQ(decoded.width, 64);
    EXPECT_EQ(decoded.height, 48);
    const std::uint8_t* middle = &decoded.bgrx[(24U * 64U + 32U) * 4U];
    EXPECT_NEAR(middle[2], 0xc0, 6);
    EXPECT_NEAR(middle[1], 0x30, 6);
    EXPECT_NEAR(middle[0], 0x20, 6);
}

TEST(Jpeg, RefusesWhatIsNoPicture) {
    std::vector<std::uint32_t> pixels(10);
    EXPECT_EQ(encodeJpeg(std::as_bytes(std::span(pixels)), 64, 48, 90), nullptr);
    EXPECT_EQ(encodeJpeg(std::as_bytes(std::span(pixels)), 0, 48, 90), nullptr);
    EXPECT_EQ(encodeJpeg(std::as_bytes(std::span(pixels)), -1, -1, 90), nullptr);
    std::vector<std::uint32_t> wide(70'000);
    EXPECT_EQ(encodeJpeg(std::as_bytes(std::span(wide)), 70'000, 1, 90), nullptr)
        << "more than a JPEG can have";
}

} // namespace

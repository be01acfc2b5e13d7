#include "appliance/encoder/rtp.h"

#include <gtest/gtest.h>

namespace {

int byteAt(const std::string& text, std::size_t at) {
    return static_cast<std::uint8_t>(text.at(at));
}

unsigned number32(const std::string& text, std::size_t at) {
    return static_cast<unsigned>(byteAt(text, at)) << 24 | static_cast<unsigned>(byteAt(text, at + 1)) << 16 |
           static_cast<unsigned>(byteAt(text, at + 2)) << 8 | static_cast<unsigned>(byteAt(text, at + 3));
}

int number16(const std::string& text, std::size_t at) {
    return byteAt(text, at) << 8 | byteAt(text, at + 1);
}

const std::string startCode("\0\0\1", 3);

} // namespace

TEST(Rtp, Mpeg2KeepsSlicesWholeWhereTheyFitAndTellsOfThePicture) {
    const std::string header = startCode + "\xB3" + std::string(6, 's');
    // Picture 5 of its group, predicted from the one before.
    const std::string picture = startCode + std::string("\x00\x01\x50\x00", 4);
    const std::string slice1 = startCode + "\x01" + std::string(20, 'a');
    const std::string slice2 = startCode + "\x02" + std::string(20, 'b');
    const std::string large = startCode + "\x03" + std::string(60, 'c');
    const std::string all = header + picture + slice1 + slice2 + large;
    const auto payloads = mpegVideoPayloads(all, 54); // 50 without the header
    ASSERT_EQ(payloads.size(), 4U);
    std::string joined;
    for (const std::string& payload : payloads) {
        EXPECT_LE(payload.size(), 54U);
        EXPECT_EQ(number32(payload, 0) >> 16 & 0x3FF, 5U);
        EXPECT_EQ(number32(payload, 0) >> 8 & 7, 2U);
        joined += payload.substr(4);
    }
    EXPECT_EQ(joined, all);
    EXPECT_EQ(payloads[0].substr(4), header + picture + slice1);
    EXPECT_EQ(number32(payloads[0], 0) >> 11 & 7, 7U) << "headers, and whole slices";
    EXPECT_EQ(payloads[1].substr(4), slice2);
    EXPECT_EQ(number32(payloads[1], 0) >> 11 & 7, 3U);
    EXPECT_EQ(number32(payloads[2], 0) >> 11 & 7, 2U) << "a slice begins";
    EXPECT_EQ(number32(payloads[3], 0) >> 11 & 7, 1U) << "a slice ends";
}

TEST(Rtp, PacketsAreNumberedAndTimed) {
    RtpStream stream(96);
    const std::string first = stream.packet("abc", false, 1000000000);
    const std::string second = stream.packet("d", true, 1040000000);
    EXPECT_EQ(byteAt(first, 0), 0x80);
    EXPECT_EQ(byteAt(first, 1), 96);
    EXPECT_EQ(byteAt(second, 1), 0x80 | 96);
    EXPECT_EQ(number16(second, 2), (number16(first, 2) + 1) & 0xFFFF);
    EXPECT_EQ(number32(second, 4) - number32(first, 4), 3600U); // 40 ms at 90 kHz
    EXPECT_EQ(number32(first, 8), stream.source());
    EXPECT_EQ(first.substr(12), "abc");
    // Half a year after the machine's start.
    RtpStream late(96);
    const std::int64_t halfAYear = 15768000LL * 1000000000;
    const std::string a = late.packet("x", true, halfAYear);
    const std::string b = late.packet("x", true, halfAYear + 1000000000);
    EXPECT_EQ(number32(b, 4) - number32(a, 4), 90000U);
}

TEST(Rtp, ReportsCountWhatWasSentAndMaySayGoodbye) {
    RtpStream stream(32);
    stream.packet("12345", true, 0);
    stream.packet("123", true, 0);
    const std::string report = stream.report(false);
    EXPECT_EQ(byteAt(report, 1), 200);
    EXPECT_EQ(number16(report, 2), 6);
    EXPECT_EQ(number32(report, 4), stream.source());
    EXPECT_EQ(number32(report, 20), 2U);
    EXPECT_EQ(number32(report, 24), 8U);
    EXPECT_EQ(byteAt(report, 29), 202) << "the name follows";
    EXPECT_EQ(28U + 4U * (number16(report, 30) + 1U), report.size());
    const std::string last = stream.report(true);
    EXPECT_EQ(last.size(), report.size() + 8);
    EXPECT_EQ(byteAt(last, report.size() + 1), 203);
}

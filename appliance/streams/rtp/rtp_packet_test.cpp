#include "appliance/streams/rtp/rtp_packet.h"

#include "appliance/streams/rtp/test_packets.h"

#include <gtest/gtest.h>
#include <string>

namespace streams {
namespace {

TEST(RtpPacket, IsReadAsItWasMade) {
    const auto packet = readRtp(rtp(0xfffe, 0x89abcdef, "abc", 0x12345678));
    ASSERT_TRUE(packet);
    EXPECT_TRUE(packet->marker);
    EXPECT_EQ(packet->payloadType, 96);
    EXPECT_EQ(packet->sequence, 0xfffe);
    EXPECT_EQ(packet->timestamp, 0x89abcdef);
    EXPECT_EQ(packet->source, 0x12345678U);
    EXPECT_EQ(packet->payload, "abc");
}

TEST(RtpPacket, ExtensionsContributorsAndPaddingAreNotPayload) {
    std::string bytes = rtp(1, 2, "");
    bytes[0] = static_cast<char>(0x80 | 0x20 | 0x10 | 1); // padding, extension, one contributor
    bytes += std::string("cccc", 4) + std::string("\xbe\xde\x00\x01xxxx", 8) + "payload" +
             std::string("\0\0\3", 3);
    EXPECT_EQ(readRtp(bytes)->payload, "payload");
}

TEST(RtpPacket, AnythingElseIsRefused) {
    EXPECT_FALSE(readRtp(""));
    EXPECT_FALSE(readRtp("\x80\x60"));
    EXPECT_FALSE(readRtp(std::string(12, '\0')));
    std::string padded = rtp(1, 2, "ab");
    padded[0] = static_cast<char>(0xa0);
    padded.back() = '\xff'; // more padding than there are bytes
    EXPECT_FALSE(readRtp(padded));
    std::string extended = rtp(1, 2, "ab");
    extended[0] = static_cast<char>(0x90);
    EXPECT_FALSE(readRtp(extended));
}

} // namespace
} // namespace streams

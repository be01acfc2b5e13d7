#include "appliance/streams/rtp_payload.h"

#include <gtest/gtest.h>

#include <string>

namespace streams {
namespace {

class RtpPayload : public testing::Test {
protected:
    static std::string packet(int type, const std::string& payload) {
        std::string bytes(12, '\0');
        bytes[0] = '\x80';
        bytes[1] = static_cast<char>(type);
        return bytes + payload;
    }
};

TEST_F(RtpPayload, StaticTypesNameTheirEncoding) {
    for (const auto& [type, name] :
         {std::pair{0, "PCMU"}, {8, "PCMA"}, {14, "MPA"}, {26, "JPEG"}, {32, "MPV"}, {33, "MP2T"}}) {
        EXPECT_EQ(encodingNameIn(capsOfPayloadType(type)), name);
        EXPECT_EQ(encodingNameIn(capsOfPacket(packet(type, "x"))), name);
    }
    EXPECT_EQ(capsOfPayloadType(1), "");
    EXPECT_EQ(capsOfPayloadType(96), "");
}

TEST_F(RtpPayload, DynamicTypesAreRecognisedByTheirContent) {
    std::string transport(2 * 188, 'x');
    transport[0] = transport[188] = '\x47';
    EXPECT_EQ(encodingNameIn(capsOfPacket(packet(96, transport))), "MP2T");
    EXPECT_EQ(encodingNameIn(capsOfPacket(packet(96, transport + "x"))), "MPV");
    EXPECT_EQ(encodingNameIn(capsOfPacket(packet(127, "x"))), "MPV");
}

TEST_F(RtpPayload, MarkerBitIsNotPartOfTheType) {
    EXPECT_EQ(encodingNameIn(capsOfPacket(packet(33 | 0x80, "x"))), "MP2T");
}

TEST_F(RtpPayload, OtherBytesHaveNoCaps) {
    EXPECT_EQ(capsOfPacket(""), "");
    EXPECT_EQ(capsOfPacket(std::string(12, '\x80')), "") << "a header without a payload";
    EXPECT_EQ(capsOfPacket(std::string(20, '\0')), "") << "version 0";
    EXPECT_EQ(capsOfPacket("\x40 0123456789012345"), "") << "version 1";
    EXPECT_EQ(encodingNameIn(""), "");
    EXPECT_EQ(encodingNameIn("nonsense,,,"), "");
    EXPECT_EQ(encodingNameIn("video/x-raw,format=I420"), "");
}

TEST(CapsField, QuotesWhatIsNoWord) {
    EXPECT_EQ(capsField("config", "0001b0"), ",config=(string)0001b0");
    EXPECT_EQ(capsField("sprop-parameter-sets", "Z0LA,aM4="), ",sprop-parameter-sets=(string)\"Z0LA,aM4=\"");
    EXPECT_EQ(capsField("a", ""), ",a=(string)\"\"");
    EXPECT_EQ(capsField("a", "x\"y\\z"), ",a=(string)\"x\\\"y\\\\z\"");
}

} // namespace
} // namespace streams

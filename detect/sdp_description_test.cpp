#include "detect/sdp_description.h"

#include <gtest/gtest.h>

namespace {

using detect::parseSdp;
using detect::SdpDescription;

TEST(SdpDescription, VideoAndAudioHaveAddressAndPort) {
    const SdpDescription found = parseSdp("v=0\r\n"
                                          "s=stream\r\n"
                                          "m=video 5000 RTP/AVP 32\r\n"
                                          "c=IN IP4 239.192.0.7/16\r\n"
                                          "a=rtpmap:32 MPV/90000\r\n"
                                          "m=audio 5002 RTP/AVP 14\r\n"
                                          "c=IN IP4 239.192.0.8\r\n");
    EXPECT_EQ(found.videoAddress, "239.192.0.7");
    EXPECT_EQ(found.videoPort, 5000);
    EXPECT_EQ(found.audioAddress, "239.192.0.8");
    EXPECT_EQ(found.audioPort, 5002);
    EXPECT_TRUE(found.hasAudio);
}

TEST(SdpDescription, PortZeroAndAddressWithATtl) {
    const SdpDescription found = parseSdp("m=video 0 RTP/AVP 32\nc=IN IP4 239.192.0.7/16/2\n");
    EXPECT_EQ(found.videoAddress, "239.192.0.7");
    EXPECT_EQ(found.videoPort, 0);
    EXPECT_FALSE(found.hasAudio);
}

TEST(SdpDescription, ConnectionOfTheWholeDescriptionDoesNotCount) {
    EXPECT_EQ(parseSdp("c=IN IP4 239.192.0.7\nm=video 5000\n").videoAddress, "");
}

TEST(SdpDescription, ConnectionOfAnotherKindOfMediaDoesNotCount) {
    EXPECT_EQ(parseSdp("m=video 5000\nm=application 1\nc=IN IP4 239.192.0.7\n").videoAddress, "");
}

TEST(SdpDescription, UnreadableVideoConnectionRemovesTheVideo) {
    for (const char* address : {"", " 239.192.0.7", "/16"}) {
        const SdpDescription found =
            parseSdp(std::string("m=video 5000\nc=IN IP4 239.192.0.7\nc=IN IP4 ") + address + "\n");
        EXPECT_EQ(found.videoAddress, "") << address;
        EXPECT_EQ(found.videoPort, 0) << address;
    }
}

TEST(SdpDescription, UnreadableAudioConnectionRemovesTheAudio) {
    const SdpDescription found = parseSdp("m=video 1\nc=IN IP4 239.1.1.1\nm=audio 5002\nc=IN IP4 /16\n");
    EXPECT_EQ(found.videoAddress, "239.1.1.1");
    EXPECT_FALSE(found.hasAudio);
    EXPECT_EQ(found.audioAddress, "");
    EXPECT_EQ(found.audioPort, 0);
}

TEST(SdpDescription, AudioWithoutAConnectionIsStillSeen) {
    const SdpDescription found = parseSdp("m=video 1\nc=IN IP4 239.1.1.1\nm=audio 5002\n");
    EXPECT_TRUE(found.hasAudio);
    EXPECT_EQ(found.audioAddress, "");
    EXPECT_EQ(found.audioPort, 5002);
}

TEST(SdpDescription, LaterSectionOfAKindOverwritesTheEarlier) {
    const SdpDescription found =
        parseSdp("m=video 1\nc=IN IP4 239.1.1.1\nm=audio 3\nm=video 2\nc=IN IP4 239.1.1.2 x\n");
    EXPECT_EQ(found.videoAddress, "239.1.1.2");
    EXPECT_EQ(found.videoPort, 2);
}

TEST(SdpDescription, PortBeginsAtTheNinthCharacter) {
    EXPECT_EQ(parseSdp("m=video\t5000\n").videoPort, 5000);
    EXPECT_EQ(parseSdp("m=videos 5000\n").videoPort, 5000);
    EXPECT_EQ(parseSdp("m=video12345\n").videoPort, 2345);
    EXPECT_EQ(parseSdp("m=video  5000\n").videoPort, 5000) << "leading blanks belong to the number";
    EXPECT_EQ(parseSdp("m=video\n").videoPort, 0);
    EXPECT_EQ(parseSdp("m=video \n").videoPort, 0);
    EXPECT_EQ(parseSdp("m=video 65536 x\n").videoPort, 0) << "no port";
    EXPECT_EQ(parseSdp("m=video -5 x\n").videoPort, 0);
}

TEST(SdpDescription, EitherCharacterEndsALineAndEmptyLinesAreIgnored) {
    const SdpDescription found = parseSdp("\n\r\rm=video 7\r\r\nc=IN IP4 239.1.1.1");
    EXPECT_EQ(found.videoAddress, "239.1.1.1");
    EXPECT_EQ(found.videoPort, 7);
}

TEST(SdpDescription, OtherAddressTypesAreIgnored) {
    EXPECT_EQ(parseSdp("m=video 7\nc=IN IP6 ff15::1\nC=IN IP4 1.1.1.1\nc=IN  IP4 1.1.1.1\n").videoAddress,
              "");
}

TEST(SdpDescription, ZeroByteEndsTheText) {
    EXPECT_EQ(parseSdp(std::string_view("m=video 7\n\0c=IN IP4 239.1.1.1\n", 30)).videoAddress, "");
}

TEST(SdpDescription, EmptyTextGivesNothing) {
    EXPECT_EQ(parseSdp("").videoAddress, "");
    EXPECT_EQ(parseSdp("m=").videoAddress, "");
    EXPECT_EQ(parseSdp("m=vid").videoPort, 0);
    EXPECT_EQ(parseSdp("c=IN IP4 ").videoAddress, "");
}

} // namespace

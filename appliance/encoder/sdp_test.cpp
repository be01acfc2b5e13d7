#include "appliance/encoder/sdp.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::HasSubstr;

TEST(Sdp, TheGuideNamesGroupsAndPortsWhereADecoderLooks) {
    const MulticastPlace audio{"239.1.1.2", 5020};
    EXPECT_EQ(describeMulticast("N", "127.0.0.1", {"239.1.1.1", 5010}, &audio),
              "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=N\r\nt=0 0\r\n"
              "m=video 5010 RTP/AVP 32\r\nc=IN IP4 239.1.1.1/1\r\na=rtpmap:32 MPV/90000\r\n"
              "m=audio 5020 RTP/AVP 14\r\nc=IN IP4 239.1.1.2/1\r\na=rtpmap:14 MPA/90000\r\n");
    EXPECT_THAT(describeMulticast("", "127.0.0.1", {"239.1.1.1", 5010}, nullptr),
                testing::AllOf(HasSubstr("s=-\r\n"), testing::Not(HasSubstr("audio"))));
}

TEST(Sdp, RtspStreamsAreDescribedFromAKeyPicture) {
    AccessUnit key;
    key.bytes = std::string("\0\0\1\xB0\x03\0\0\1\xB6\x10", 10);
    const std::string text = describeRtsp(Codec::Mpeg4, key, "N", "127.0.0.1", "stream=0", 25);
    EXPECT_THAT(text, HasSubstr("m=video 0 RTP/AVP 96\r\n"));
    EXPECT_THAT(text, HasSubstr("a=fmtp:96 profile-level-id=3;config=000001B003\r\n"));
    EXPECT_THAT(text, HasSubstr("a=control:stream=0\r\n"));
    key.bytes = std::string("\0\0\1\x67\x42\0\x1E\x09\0\0\1\x68\xCE", 13);
    EXPECT_THAT(describeRtsp(Codec::H264, key, "N", "127.0.0.1", "t", 25),
                HasSubstr("profile-level-id=42001E;sprop-parameter-sets=Z0IAHgk=,aM4=\r\n"));
}

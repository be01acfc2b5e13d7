#include "appliance/encoder/multicast/guide_description.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::HasSubstr;

TEST(GuideDescription, HasGroupsAndPortsWhereADecoderReadsThem) {
    const MulticastPlace audio{"239.1.1.2", 5020};
    EXPECT_EQ(describeMulticast("N", "127.0.0.1", {"239.1.1.1", 5010}, &audio),
              "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=N\r\nt=0 0\r\n"
              "m=video 5010 RTP/AVP 32\r\nc=IN IP4 239.1.1.1/1\r\na=rtpmap:32 MPV/90000\r\n"
              "m=audio 5020 RTP/AVP 14\r\nc=IN IP4 239.1.1.2/1\r\na=rtpmap:14 MPA/90000\r\n");
    EXPECT_THAT(describeMulticast("", "127.0.0.1", {"239.1.1.1", 5010}, nullptr),
                testing::AllOf(HasSubstr("s=-\r\n"), testing::Not(HasSubstr("audio"))));
}

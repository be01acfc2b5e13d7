#include "appliance/gateway/serving/description.h"

#include <gmock/gmock.h>

namespace gateway {
namespace {

TEST(Description, HasTheCamerasOwnAttributes) {
    const StreamInfo info{.video = TrackInfo{"H264", 97, 90000, "97 H264/90000", "97 packetization-mode=1"},
                          .sound = TrackInfo{"PCMU", 0, 8000, "", ""},
                          .transport = "TCP"};
    const std::string text = describe(info, "Yard");
    EXPECT_THAT(text, testing::HasSubstr("s=Yard\r\n"));
    EXPECT_THAT(text, testing::HasSubstr("m=video 0 RTP/AVP 97\r\na=rtpmap:97 H264/90000\r\n"
                                         "a=fmtp:97 packetization-mode=1\r\na=control:trackID=1\r\n"));
    EXPECT_THAT(text, testing::HasSubstr("m=audio 0 RTP/AVP 0\r\na=control:trackID=2\r\n"));
}

TEST(Description, ACameraCannotAddLines) {
    const StreamInfo info{.video = TrackInfo{"H264", 96, 90000, "96 H264/90000\r\nm=audio 1", ""},
                          .sound = {},
                          .transport = ""};
    EXPECT_THAT(describe(info, "a\r\nb"), testing::Not(testing::HasSubstr("\nm=audio")));
    EXPECT_THAT(describe(info, "a\r\nb"), testing::Not(testing::HasSubstr("\nb")));
}

} // namespace
} // namespace gateway

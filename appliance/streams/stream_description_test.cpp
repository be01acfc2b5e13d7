#include "appliance/streams/stream_description.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

namespace streams {
namespace {

using testing::HasSubstr;

const std::string base = "rtsp://127.0.0.1:554/mpeg4/1/media.orv";
const std::string head = "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=x\r\nt=0 0\r\n";
const std::string video =
    "m=video 0 RTP/AVP 96\r\na=rtpmap:96 MP4V-ES/90000\r\na=fmtp:96 profile-level-id=1;config=0001\r\n"
    "a=control:trackID=1\r\n";
const std::string sound = "m=audio 0 RTP/AVP 0\r\na=control:trackID=2\r\n";

class StreamDescriptionText : public testing::Test {
protected:
    std::optional<StreamDescription> read(const std::string& text) {
        const auto oneOf = [](const std::set<std::string>& known) {
            return [known](const std::string& encoding) { return known.count(encoding) > 0; };
        };
        return readDescription(text, base, oneOf({"MP4V-ES", "JPEG", "MPV", "MP2T"}), oneOf({"PCMU"}),
                               reason);
    }

    std::string reason;
};

TEST_F(StreamDescriptionText, VideoAndSoundAreFound) {
    const auto content = read(head + sound + video);
    ASSERT_TRUE(content) << reason;
    EXPECT_EQ(content->control, base);
    EXPECT_EQ(content->video->encodingName, "MP4V-ES");
    EXPECT_EQ(content->video->control, base + "/trackID=1");
    EXPECT_THAT(content->video->caps, HasSubstr("application/x-rtp"));
    EXPECT_THAT(content->video->caps, HasSubstr("config=(string)0001"));
    ASSERT_TRUE(content->sound);
    EXPECT_EQ(content->sound->encodingName, "PCMU");
    EXPECT_EQ(content->sound->control, base + "/trackID=2");
}

TEST_F(StreamDescriptionText, FirstUsableVideoIsTaken) {
    const auto content = read(head + "m=video 0 RTP/AVP 97\r\na=rtpmap:97 SECRET/90000\r\n" + video);
    ASSERT_TRUE(content);
    EXPECT_EQ(content->video->encodingName, "MP4V-ES");
    EXPECT_FALSE(content->sound);
}

TEST_F(StreamDescriptionText, WellKnownTypesNeedNoDescription) {
    for (const auto& [type, name] : {std::pair{26, "JPEG"}, {32, "MPV"}, {33, "MP2T"}}) {
        const auto content =
            read(head + "m=video 0 RTP/AVP " + std::to_string(type) + "\r\na=control:trackID=1\r\n");
        ASSERT_TRUE(content) << reason;
        EXPECT_EQ(content->video->encodingName, name);
    }
}

TEST_F(StreamDescriptionText, WithoutVideoThereIsAReason) {
    EXPECT_FALSE(read(""));
    EXPECT_EQ(reason, "the description is empty");
    EXPECT_FALSE(read(head + sound));
    EXPECT_EQ(reason, "the description has no video");
    EXPECT_FALSE(read(head + "m=video 0 RTP/AVP 97\r\na=rtpmap:97 SECRET/90000\r\n"));
    EXPECT_THAT(reason, HasSubstr("SECRET"));
    for (const std::string& odd :
         {std::string("x"), std::string("\0\0\0", 3), std::string("m=video"),
          std::string("m=video 0 RTP/AVP\r\n"), head + "m=video 99999 RTP/AVP x\r\n",
          head + "m=video 0 RTP/AVP 96\r\na=rtpmap:96\r\na=rtpmap:\r\na=fmtp:96 ;;=;\r\n",
          std::string(100'000, 'v')})
        EXPECT_FALSE(read(odd));
}

TEST_F(StreamDescriptionText, SessionControlIsForAllStreams) {
    EXPECT_EQ(read(head + "a=control:*\r\n" + video)->control, base);
    EXPECT_EQ(read(head + "a=control:rtsp://other/all\r\n" + video)->control, "rtsp://other/all");
}

TEST(ResolveControl, EveryForm) {
    EXPECT_EQ(resolveControl("rtsp://h/a", "trackID=1"), "rtsp://h/a/trackID=1");
    EXPECT_EQ(resolveControl("rtsp://h/a/", "trackID=1"), "rtsp://h/a/trackID=1");
    EXPECT_EQ(resolveControl("rtsp://h/a", "*"), "rtsp://h/a");
    EXPECT_EQ(resolveControl("rtsp://h/a", ""), "rtsp://h/a");
    EXPECT_EQ(resolveControl("rtsp://h:1/a/b", "/x/y"), "rtsp://h:1/x/y");
    EXPECT_EQ(resolveControl("rtsp://h", "/x"), "rtsp://h/x");
    EXPECT_EQ(resolveControl("rtsp://h/a", "rtsp://i/b"), "rtsp://i/b");
}

} // namespace
} // namespace streams

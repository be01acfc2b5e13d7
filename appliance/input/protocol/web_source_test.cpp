#include "appliance/input/protocol/web_source.h"

#include <gtest/gtest.h>

namespace input {
namespace {

TEST(WebSource, TheEndOfThePathOrOfTheQueryDecides) {
    EXPECT_EQ(webFormOf("/camera.sdp"), WebForm::session);
    EXPECT_EQ(webFormOf("/live/index.M3U8?token=1"), WebForm::playlist);
    EXPECT_EQ(webFormOf("http://host:80/clip.mp4"), WebForm::file);
    EXPECT_EQ(webFormOf("/play?id=7&.mkv"), WebForm::file);
    EXPECT_EQ(webFormOf("/stream?.ts"), WebForm::file);
    for (const char* other :
         {"/", "/video.mjpg", "/mp4", "/.mp4/video", "/video.cgi?file=a.mp4&x=1", ".mp4", ""})
        EXPECT_EQ(webFormOf(other), WebForm::none) << other;
}

TEST(WebSource, ContentTypesHaveEndings) {
    EXPECT_EQ(webEndingOf("video/mp4"), ".mp4");
    EXPECT_EQ(webEndingOf("Application/SDP ; charset=utf-8"), ".sdp");
    EXPECT_EQ(webEndingOf("application/x-mpegURL"), ".m3u8");
    for (const char* other : {"", "text/html", "video/mp", "video/mp42", "application/octet-stream"})
        EXPECT_EQ(webEndingOf(other), "") << other;
}

} // namespace
} // namespace input

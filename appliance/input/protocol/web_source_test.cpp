#include "appliance/input/protocol/web_source.h"

#include <gtest/gtest.h>
#include <string>

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

TEST(WebSource, ContentTypesSayWhatTheyCan) {
    EXPECT_EQ(webFormOfType("video/mp4"), WebForm::file);
    EXPECT_EQ(webFormOfType("Application/SDP ; charset=utf-8"), WebForm::session);
    EXPECT_EQ(webFormOfType("application/x-mpegURL"), WebForm::playlist);
    for (const char* other : {"", "text/html", "video/mp", "video/mp42", "application/octet-stream"})
        EXPECT_EQ(webFormOfType(other), WebForm::none) << other;
}

TEST(WebSource, TheFirstBytesSayTheRest) {
    EXPECT_EQ(webFormOfBytes("#EXTM3U\n#EXT-X-VERSION:3\n"), WebForm::playlist);
    EXPECT_EQ(webFormOfBytes("v=0\r\no=- 0 0"), WebForm::session);
    EXPECT_EQ(webFormOfBytes("v=0\no=- 0 0"), WebForm::session);
    EXPECT_EQ(webFormOfBytes(std::string_view("\0\0\0 ftypisom", 12)), WebForm::file);
    EXPECT_EQ(webFormOfBytes("\x1a\x45\xdf\xa3\x9f"), WebForm::file);
    EXPECT_EQ(webFormOfBytes("RIFFxxxxAVI LIST"), WebForm::file);
    EXPECT_EQ(webFormOfBytes("FLV\1\5"), WebForm::file);
    EXPECT_EQ(webFormOfBytes(std::string_view("\0\0\1\xba\x44", 5)), WebForm::file);
    std::string transport(2 * 188, 'x');
    transport[0] = transport[188] = 'G';
    EXPECT_EQ(webFormOfBytes(transport), WebForm::file);
    EXPECT_EQ(webFormOfBytes(transport.substr(0, 188)), WebForm::none);
    for (const char* other : {"", "<!DOCTYPE html>", "ftyp", "v=0", "G", "--frame\r\n", "RIFF"})
        EXPECT_EQ(webFormOfBytes(other), WebForm::none) << other;
}

} // namespace
} // namespace input

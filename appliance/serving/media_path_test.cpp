#include "appliance/serving/media_path.h"

#include <gtest/gtest.h>

TEST(MediaPath, ChannelsAreReadFromPaths) {
    EXPECT_EQ(mediaChannelOf("/mpeg4/3/media.orv"), 3);
    EXPECT_EQ(mediaChannelOf("/mpeg4/quad/media.orv"), 0);
    EXPECT_EQ(mediaChannelOf("/mpeg4/1/media.orv/trackID=1"), 1);
    EXPECT_EQ(mediaChannelOf("/mpeg4/1/media.orv/"), 1);
    for (const char* bad :
         {"", "/", "/mpeg4/", "/mpeg4/x/media.orv", "/mpeg4/1/media.orvx", "/mpeg4/1", "/other"})
        EXPECT_FALSE(mediaChannelOf(bad).has_value()) << bad;
}

TEST(MediaPath, ItsPathsCanBeReadBack) {
    for (const int channel : {0, 1, 64})
        EXPECT_EQ(mediaChannelOf(mediaPathOf(channel)), channel);
}

TEST(MediaPath, ATunnelNeedsAMediaPathAndACookie) {
    Request request;
    request.target = "/mpeg4/1/media.orv";
    EXPECT_FALSE(isTunnelRequest(request));
    request.headers.emplace_back("X-SessionCookie", "abc");
    EXPECT_TRUE(isTunnelRequest(request));
    request.target = "/other";
    EXPECT_FALSE(isTunnelRequest(request));
}

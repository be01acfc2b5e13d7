#include "appliance/input/protocol/messages.h"

#include <gtest/gtest.h>

namespace input {
namespace {

TEST(InputMessages, ARequestComesBackAsItWas) {
    const Request request{.kind = Kind::packets,
                          .place = "/media/a b.mp4",
                          .password = "with = and : in it",
                          .codec = "VP8",
                          .clockRate = 48000,
                          .user = "me",
                          .verified = false,
                          .authorities = "/etc/my authorities.pem",
                          .form = WebForm::playlist};
    const auto read = readRequest(textOf(request));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->kind, request.kind);
    EXPECT_EQ(read->place, request.place);
    EXPECT_EQ(read->password, request.password);
    EXPECT_EQ(read->codec, request.codec);
    EXPECT_EQ(read->clockRate, request.clockRate);
    EXPECT_EQ(read->user, request.user);
    EXPECT_FALSE(read->verified);
    EXPECT_EQ(read->authorities, request.authorities);
    EXPECT_EQ(read->form, request.form);
}

TEST(InputMessages, OtherTextsAreNoRequests) {
    for (const char* text :
         {"", "file", "file\n\n\n\n", "file\n\n\n\n90000\n", "pipe\n\n\n\n90000\n\nyes\n\n\n",
          "file\n\n\n\nx\n\nyes\n\n\n", "file\n\n\n\n0\n\nyes\n\n\n", "file\n\n\n\n90000\n\nyes\n\n\nmore\n",
          "web\n\n\n\n90000\n\nyes\n\npage\n"})
        EXPECT_FALSE(readRequest(text)) << text;
}

TEST(InputMessages, AreFramedWithTheirLength) {
    EXPECT_EQ(framed(2, "abc"), std::string("$\2\0\3abc", 7));
    EXPECT_EQ(framed(0, std::string(300, 'x')).substr(0, 4), std::string("$\0\1\x2c", 4));
    EXPECT_EQ(framed(0, std::string(70'000, 'x')).size(), 4 + longestMessage);
}

} // namespace
} // namespace input

#include <libcommon/network.h>

#include <gtest/gtest.h>

namespace {

std::string encoded(const std::string& bytes) {
    return base64encode(bytes.data(), bytes.size());
}

TEST(Base64, TheStandardsOwnVectors) {
    EXPECT_EQ(encoded(""), "");
    EXPECT_EQ(encoded("f"), "Zg==");
    EXPECT_EQ(encoded("fo"), "Zm8=");
    EXPECT_EQ(encoded("foo"), "Zm9v");
    EXPECT_EQ(encoded("foob"), "Zm9vYg==");
    EXPECT_EQ(encoded("fooba"), "Zm9vYmE=");
    EXPECT_EQ(encoded("foobar"), "Zm9vYmFy");
}

TEST(Base64, CredentialsAsARequestCarriesThem) {
    EXPECT_EQ(encoded("Aladdin:open sesame"), "QWxhZGRpbjpvcGVuIHNlc2FtZQ==");
}

TEST(Base64, EveryByteValueIncludingZero) {
    EXPECT_EQ(encoded(std::string("\0\xff\xfe", 3)), "AP/+");
    EXPECT_EQ(encoded(std::string(3, '\xfb')), "+/v7");
    EXPECT_EQ(base64encode(nullptr, 0), "");
}

TEST(ToLower, AsciiLettersOnly) {
    char text[] = "MPEG4,Jpeg [\\]^_` @ \xc4\xd6 Z";
    toLower(text);
    EXPECT_STREQ(text, "mpeg4,jpeg [\\]^_` @ \xc4\xd6 z");
    char empty[] = "";
    toLower(empty);
    EXPECT_STREQ(empty, "");
}

} // namespace

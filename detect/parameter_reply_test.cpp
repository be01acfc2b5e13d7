#include "detect/parameter_reply.h"

#include <array>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

// A reply in a buffer of exactly its size, so that a sanitizer reports any access beyond it.
struct Reply {
    explicit Reply(const std::string& text) : bytes(text.begin(), text.end()) {}

    bool extract(std::string_view group) {
        return detect::extractValue(bytes, static_cast<int>(bytes.size()), group);
    }
    std::string text() const { return bytes.data(); }

    std::vector<char> bytes;
};

TEST(ParameterReply, ValueMovesToTheStart) {
    Reply reply("Brand.ProdFullName=Model 240\n");
    EXPECT_TRUE(reply.extract("Brand.ProdFullName"));
    EXPECT_EQ(reply.text(), "Model 240");
}

TEST(ParameterReply, LastByteIsLostWhateverItIs) {
    Reply reply("Image.Rotation=180");
    EXPECT_TRUE(reply.extract("Image.Rotation"));
    EXPECT_EQ(reply.text(), "18");
}

TEST(ParameterReply, OtherReplyIsKept) {
    Reply reply("root.Image.Rotation=180\n");
    EXPECT_FALSE(reply.extract("Image.Rotation"));
    EXPECT_EQ(reply.text(), "root.Image.Rotation=180");
}

TEST(ParameterReply, LettersCountWithTheirCase) {
    Reply reply("image.rotation=180\n");
    EXPECT_FALSE(reply.extract("Image.Rotation"));
}

TEST(ParameterReply, CharacterAfterTheNameIsSkippedWhateverItIs) {
    Reply reply("Image.Rotation:180\n");
    EXPECT_TRUE(reply.extract("Image.Rotation"));
    EXPECT_EQ(reply.text(), "180");
}

TEST(ParameterReply, ReplyShorterThanTheNameIsKept) {
    Reply reply("Image\n");
    EXPECT_FALSE(reply.extract("Image.Rotation"));
    EXPECT_EQ(reply.text(), "Image");
}

TEST(ParameterReply, SingleByteIsAnEmptyReply) {
    Reply reply("#");
    EXPECT_FALSE(reply.extract("Image.Rotation"));
    EXPECT_EQ(reply.text(), "");
}

TEST(ParameterReply, NameAloneHasAnEmptyValueEvenWithAnOlderReplyBehindIt) {
    std::array<char, 64> buffer{};
    std::strcpy(buffer.data(), "Image.Rotation\nolder reply");
    EXPECT_TRUE(detect::extractValue(buffer, 15, "Image.Rotation"));
    EXPECT_STREQ(buffer.data(), "");
}

TEST(ParameterReply, NameCutByTheTerminatorIsNoName) {
    Reply reply("Image.Rotation");
    EXPECT_FALSE(reply.extract("Image.Rotation"));
    EXPECT_EQ(reply.text(), "Image.Rotatio");
}

TEST(ParameterReply, FullBufferLosesItsLastByte) {
    std::array<char, 16> buffer;
    std::memcpy(buffer.data(), "Image.I=12345678", 16);
    EXPECT_TRUE(detect::extractValue(buffer, 16, "Image.I"));
    EXPECT_STREQ(buffer.data(), "1234567");
}

TEST(ParameterReply, CountBeyondTheBufferIsTheBuffer) {
    std::array<char, 4> buffer = {'a', '=', 'b', 'c'};
    EXPECT_TRUE(detect::extractValue(buffer, 1000, "a"));
    EXPECT_STREQ(buffer.data(), "b");
}

TEST(ParameterReply, ZeroByteEndsTheText) {
    Reply inName(std::string("Image\0.Rotation=90\n", 19));
    EXPECT_FALSE(inName.extract("Image.Rotation"));
    Reply inValue(std::string("Image.Rotation=9\0"
                              "0\n",
                              18));
    EXPECT_TRUE(inValue.extract("Image.Rotation"));
    EXPECT_EQ(inValue.text(), "9");
}

} // namespace

#include "appliance/streams/jpeg_check.h"

#include "appliance/players/testing/test_pictures.h"

#include <gtest/gtest.h>

#include <string>

namespace streams {
namespace {

using player::jpegPicture;

TEST(WholeJpeg, TellsTheSize) {
    const auto size = wholeJpeg(jpegPicture(1, 1, 640, 480));
    ASSERT_TRUE(size);
    EXPECT_EQ(size->width, 640);
    EXPECT_EQ(size->height, 480);
}

TEST(WholeJpeg, PaddingAfterTheEndIsAllowed) {
    const std::string jpeg = jpegPicture(1, 1, 64, 64);
    EXPECT_TRUE(wholeJpeg(jpeg + std::string(100, '\0')));
    EXPECT_TRUE(wholeJpeg(jpeg + "\r\n"));
    EXPECT_FALSE(wholeJpeg(jpeg + std::string(5000, '\0')));
}

TEST(WholeJpeg, EveryTruncationIsRefused) {
    const std::string jpeg = jpegPicture(1, 1, 64, 64);
    for (std::size_t size = 0; size < jpeg.size(); ++size)
        ASSERT_FALSE(wholeJpeg(std::string_view(jpeg).substr(0, size))) << size;
}

TEST(WholeJpeg, OtherThingsAreRefused) {
    for (const std::string& bytes :
         {std::string(), std::string("GIF89a"), std::string("\xff\xd8\xff\xd9"),
          std::string("\xff\xd8"
                      "hello\xff\xd9"),
          std::string("\xff\xd8") + std::string(1000, '\xff') + "\xff\xd9",
          std::string("\xff\xd8\xff\xe0\0\0", 6) + std::string(20, 'x') + "\xff\xd9"})
        EXPECT_FALSE(wholeJpeg(bytes));
}

TEST(WholeJpeg, EmptySizesAreRefused) {
    std::string jpeg = jpegPicture(1, 1, 64, 64);
    const std::size_t frame = jpeg.find("\xff\xc0");
    ASSERT_NE(frame, std::string::npos);
    const auto withSize = [&](int width, int height) {
        std::string changed = jpeg;
        changed[frame + 5] = static_cast<char>(height >> 8);
        changed[frame + 6] = static_cast<char>(height & 255);
        changed[frame + 7] = static_cast<char>(width >> 8);
        changed[frame + 8] = static_cast<char>(width & 255);
        return wholeJpeg(changed).has_value();
    };
    EXPECT_TRUE(withSize(4096, 4096));
    EXPECT_TRUE(withSize(16, 65535)) << "the decoder has a limit";
    EXPECT_FALSE(withSize(0, 16));
    EXPECT_FALSE(withSize(16, 0));
}

} // namespace
} // namespace streams

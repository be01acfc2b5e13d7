#include "appliance/encoder/pictures/picture_source.h"

#include "appliance/encoder/pictures/drawn_sources.h"
#include "appliance/encoder/pictures/test_picture.h"
#include "appliance/mark/frame_mark.h"

#include <gtest/gtest.h>

using std::chrono::milliseconds;
using std::chrono::seconds;

namespace {

std::optional<FrameMark> markOf(const Picture& picture) {
    return readFrameMark(picture.bytes.data(), picture.width, picture.height, picture.stride());
}

} // namespace

TEST(PictureSource, GivesEveryReaderItsFirstPictureAtOnceAndThenNewOnes) {
    TestSource source("Name", 160, 120, 1, 5); // one picture a second
    Subscription first(source);
    ASSERT_TRUE(first.next(seconds(10)));
    Subscription second(source);
    const auto start = std::chrono::steady_clock::now();
    const PicturePtr picture = second.next(seconds(10));
    EXPECT_LT(std::chrono::steady_clock::now() - start, milliseconds(500));
    ASSERT_TRUE(picture);
    EXPECT_EQ(markOf(*picture)->source, 5);
    const PicturePtr next = second.next(seconds(10));
    ASSERT_TRUE(next);
    EXPECT_GT(next->number, picture->number);
}

TEST(PictureSource, NumbersContinueWithoutReaders) {
    TestSource source("Name", 160, 120, 50, 5);
    std::uint64_t before = 0;
    {
        Subscription reader(source);
        before = reader.next(seconds(10))->number;
    }
    // There are short times without a reader. The numbers never go back.
    std::uint64_t after = before;
    const auto end = std::chrono::steady_clock::now() + seconds(10);
    while (after < before + 10 && std::chrono::steady_clock::now() < end) {
        Subscription reader(source);
        const std::uint64_t number = reader.next(seconds(10))->number;
        EXPECT_GE(number, after);
        after = number;
    }
    EXPECT_GE(after, before + 10);
}

TEST(PictureSource, StoppedReadersDoNotWait) {
    TestSource source("Name", 160, 120, 1, 5);
    Subscription reader(source);
    ASSERT_TRUE(reader.next(seconds(10)));
    source.stopReaders();
    EXPECT_FALSE(reader.next(seconds(10)));
}

TEST(PictureSource, TheQuadViewShowsFourInputsAndItsOwnMark) {
    TestSource a("A", 160, 120, 25, 1);
    TestSource b("B", 160, 120, 25, 2);
    TestSource c("C", 160, 120, 25, 3);
    QuadSource quad({&a, &b, &c}, 640, 480, 25, 200);
    Subscription reader(quad);
    PicturePtr picture = reader.next(seconds(10));
    for (int i = 0; i < 5; ++i)
        picture = reader.next(seconds(10));
    ASSERT_TRUE(picture);
    EXPECT_EQ(markOf(*picture)->source, 200);
    // The whole picture's mark covers the lower two quarters' marks only.
    Picture quarter;
    for (int i = 0; i < 2; ++i) {
        quarter.resize(320, 240);
        for (int y = 0; y < 240; ++y)
            std::copy_n(picture->row(y) + static_cast<std::ptrdiff_t>(i) * 320 * 4, 320 * 4, quarter.row(y));
        EXPECT_EQ(markOf(quarter)->source, i + 1);
    }
    EXPECT_NE(picture->row(300)[4], 0) << "the third input is in the lower left";
    EXPECT_EQ(picture->row(300)[500 * 4], 0) << "there is no fourth input";
}

TEST(TestPicture, MovesAndLeavesTheTopEmpty) {
    const TestPicture drawer("A rather long name that has to shrink", 720, 576, 9);
    Picture first;
    Picture second;
    drawer.draw(first, 65536 + 10, 25);
    drawer.draw(second, 65536 + 20, 25);
    EXPECT_EQ(markOf(first), (FrameMark{9, 10})); // the counter wraps
    EXPECT_EQ(markOf(second), (FrameMark{9, 20}));
    EXPECT_TRUE(std::equal(first.row(0), first.row(190), second.row(0)));
    EXPECT_FALSE(std::equal(first.row(340), first.row(440), second.row(340)));
}

TEST(Picture, ScalingKeepsPlainColoursAndPlaces) {
    Picture from;
    from.resize(4, 4);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x)
            from.row(y)[x * 4] = static_cast<std::uint8_t>(x < 2 ? 10 : 250);
    Picture to;
    to.resize(40, 20);
    drawScaled(from, to, 20, 10, 20, 10);
    EXPECT_EQ(to.row(5)[30 * 4], 0) << "outside the rectangle";
    EXPECT_EQ(to.row(10)[20 * 4], 10);
    EXPECT_EQ(to.row(19)[39 * 4], 250);
    drawScaled(from, to, 0, 0, 1, 1);
    EXPECT_GT(to.row(0)[0], 10);
}

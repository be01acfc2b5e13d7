#include "appliance/panel/pictures/picture_maker.h"

#include "appliance/jpeg/test_jpeg.h"
#include "appliance/mark/frame_mark.h"
#include "appliance/screen/appliance_root_fixture.h"
#include "appliance/screen/frame_store.h"

#include <libcommon/clock.h>
#include <libcommon/display.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

namespace panel {
namespace {

using namespace std::chrono_literals;

// A player that draws marked pictures, and a maker that looks at them.
class PictureMakerTest : public screen::ApplianceRoot {
protected:
    PictureMakerTest() { configure("[Screen]\nSize = 1280x720\n[Encoder.Gate]\n[Encoder.Yard]\n"); }

    void draw(int source) {
        screen::PictureShape shape;
        shape.width = 640;
        shape.height = 360;
        std::vector<std::uint8_t> pixels(640 * 360 * 4, 0x60);
        ++counter_;
        drawFrameMark(pixels.data(), 640, 360, 640 * 4, {static_cast<std::uint8_t>(source), counter_});
        screen::PictureView view;
        view.shape = shape;
        view.plane[0] = pixels.data();
        view.stride[0] = 640 * 4;
        store_.draw(view, source);
    }

    PictureMaker::News news() {
        return {.picture = [this](const MadePicture& picture) { newest_ = picture.number; },
                .still = [this] { ++stills_; }};
    }
    static PictureSettings quick() { return {.mostPerSecond = 50, .mostWidth = 960}; }

    template<class Condition>
    static bool await(Condition condition) {
        for (int i = 0; i < 2000 && !condition(); ++i)
            std::this_thread::sleep_for(5ms);
        return condition();
    }

    screen::FrameStore store_;
    std::uint16_t counter_ = 0;
    std::atomic<std::uint64_t> newest_{0};
    std::atomic<int> stills_{0};
};

TEST_F(PictureMakerTest, MakesNothingWithoutViewers) {
    draw(0);
    PictureMaker maker(news(), quick);
    EXPECT_TRUE(await([&] { return stills_ == 1; })) << "but takes a still";
    EXPECT_EQ(newest_, 0U);
    EXPECT_EQ(maker.picture(1).number, 0U);
    ASSERT_TRUE(maker.stills().find("Gate"));
    const DecodedJpeg still = decodeJpeg(*maker.stills().find("Gate")->jpeg);
    EXPECT_EQ(still.width, 320);
    EXPECT_EQ(still.height, 180);
    EXPECT_EQ(readFrameMark(still.bgrx.data(), 320, 180, 320 * 4), (FrameMark{0, 1}));
}

TEST_F(PictureMakerTest, ShowsEachNewFrameToAViewer) {
    PictureMaker maker(news(), quick);
    maker.setViewers(1);
    EXPECT_TRUE(await([&] { return newest_ == 1; })) << "the black screen";
    EXPECT_TRUE(maker.picture(1).blank);
    for (int i = 0; i < 5; ++i) {
        const std::uint64_t before = newest_;
        draw(1);
        ASSERT_TRUE(await([&] { return newest_ > before; })) << i;
    }
    const MadePicture picture = maker.picture(newest_);
    EXPECT_EQ(picture.source, 1);
    EXPECT_EQ(picture.width, 960);
    const DecodedJpeg decoded = decodeJpeg(*picture.jpeg);
    EXPECT_EQ(readFrameMark(decoded.bgrx.data(), 960, 540, 960 * 4), (FrameMark{1, counter_}));
}

TEST_F(PictureMakerTest, MakesNoPictureOfWhatLooksTheSame) {
    draw(0);
    PictureMaker maker(news(), quick);
    maker.setViewers(1);
    ASSERT_TRUE(await([&] { return newest_ == 1; }));
    std::this_thread::sleep_for(700ms); // several looks
    EXPECT_EQ(newest_, 1U);
    osdPrintf(0, 0, "A text");
    EXPECT_TRUE(await([&] { return newest_ == 2; }));
}

TEST_F(PictureMakerTest, AnOldNumberGetsTheNewestPicture) {
    PictureMaker maker(news(), quick);
    maker.setViewers(1);
    for (int i = 0; i < 8; ++i) {
        const std::uint64_t before = newest_;
        draw(0);
        ASSERT_TRUE(await([&] { return newest_ > before; }));
    }
    EXPECT_EQ(maker.picture(1).number, newest_);
    EXPECT_EQ(maker.picture(1'000'000).number, newest_);
    EXPECT_EQ(maker.picture(newest_ - 1).number, newest_ - 1);
}

TEST_F(PictureMakerTest, GoesSlowlyWhileNobodyFetches) {
    std::atomic<bool> ends{false};
    std::thread player([&] {
        while (!ends) {
            draw(0);
            std::this_thread::sleep_for(20ms);
        }
    });
    PictureMaker maker(news(), [] { return PictureSettings{.mostPerSecond = 50, .mostWidth = 160}; });
    maker.setViewers(1);
    std::this_thread::sleep_for(6s); // full rate for five seconds
    const std::uint64_t before = newest_;
    std::this_thread::sleep_for(3s);
    EXPECT_LE(newest_ - before, 5U);
    std::uint64_t best = 0; // a busy machine has bad seconds
    for (int second = 0; second < 10 && best < 3; ++second) {
        const std::uint64_t begun = newest_;
        maker.fetched();
        std::this_thread::sleep_for(1s);
        best = std::max(best, newest_ - begun);
    }
    EXPECT_GE(best, 3U) << "a busy machine makes fewer than 50 a second, but more than one";
    ends = true;
    player.join();
}

TEST_F(PictureMakerTest, TakesAStillOfTheNextSource) {
    draw(0);
    PictureMaker maker(news(), quick);
    ASSERT_TRUE(await([&] { return stills_ == 1; }));
    draw(1);
    maker.sourceChanged();
    EXPECT_TRUE(await([&] { return stills_ == 2; }));
    EXPECT_TRUE(maker.stills().find("Yard"));
    EXPECT_TRUE(maker.stills().find("Gate"));
}

TEST_F(PictureMakerTest, TakesNoStillOfABlankScreen) {
    draw(0);
    store_.blank();
    PictureMaker maker(news(), quick);
    maker.setViewers(1);
    ASSERT_TRUE(await([&] { return newest_ == 1; }));
    EXPECT_EQ(stills_, 0);
}

} // namespace
} // namespace panel

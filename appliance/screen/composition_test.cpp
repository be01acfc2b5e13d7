#include "appliance/screen/composition.h"

#include "appliance/screen/appliance_root_fixture.h"
#include "appliance/screen/reference_picture.h"

#include <libcommon/clock.h>
#include <libcommon/display.h>
#include <libcommon/status.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace screen {
namespace {

constexpr std::uint32_t grey = 0x808080;

PictureShape shapeOf(int width, int height, PixelFormat format = PixelFormat::i420) {
    PictureShape shape;
    shape.width = width;
    shape.height = height;
    shape.format = format;
    shape.fullRange = true;
    return shape;
}

class Composition : public ApplianceRoot {
protected:
    FrameInfo draw(const PictureShape& shape, int source = 0) {
        const std::vector<std::uint8_t> bytes(bytesOf(shape), 0x80);
        return player.draw(viewOf(shape, bytes.data()), source);
    }
    static bool isAll(const Picture& picture, std::uint32_t colour) {
        return std::ranges::all_of(picture.pixels, [=](std::uint32_t pixel) { return pixel == colour; });
    }
    static std::uint32_t pixel(const Picture& picture, int x, int y) {
        return picture.pixels.at(static_cast<std::size_t>(y * picture.width() + x));
    }
    // Whether anything is drawn at the bottom left, over the grey picture.
    static bool hasLabel(const Picture& picture) {
        const auto lowerHalf =
            picture.pixels.begin() + static_cast<std::ptrdiff_t>(picture.pixels.size() / 2);
        return std::any_of(lowerHalf, picture.pixels.end(),
                           [](std::uint32_t pixel) { return pixel != grey; });
    }

    FrameStore player;
    Composer composer;
};

TEST_F(Composition, NoFrameIsABlackTelevision) {
    const Picture& picture = composer.compose();
    EXPECT_TRUE(picture.blanked);
    EXPECT_EQ(picture.info.number, 0U);
    EXPECT_EQ(picture.screen, defaultScreen(VideoMode::pal));
    EXPECT_TRUE(isAll(picture, 0));
    player.setMode(VideoMode::ntsc);
    EXPECT_EQ(composer.compose().screen, defaultScreen(VideoMode::ntsc));
}

TEST_F(Composition, FrameIsShownUntilTheScreenIsBlanked) {
    PictureShape shape = televisionShape(VideoMode::pal);
    EXPECT_EQ(draw(shape, 3).number, 1U);
    EXPECT_EQ(composer.wait(0, 10'000), 1U);
    const Picture& picture = composer.compose();
    EXPECT_FALSE(picture.blanked);
    EXPECT_EQ(picture.info.source, 3);
    EXPECT_TRUE(isAll(picture, grey));
    player.blank();
    EXPECT_TRUE(composer.compose().blanked);
    EXPECT_TRUE(isAll(picture, 0));
    EXPECT_EQ(picture.info.number, 1U) << "the newest picture is told although it is not seen";
    draw(shape);
    EXPECT_FALSE(composer.compose().blanked);
    osdBlank();
    EXPECT_TRUE(composer.compose().blanked);
}

TEST_F(Composition, TextsAreShownInFrontOfFramesAndOfBlack) {
    osdPrintf(0, 0, "No connection");
    EXPECT_FALSE(isAll(composer.compose(), 0));
    draw(televisionShape(VideoMode::pal));
    EXPECT_FALSE(isAll(composer.compose(), grey));
    osdClear(0);
    EXPECT_TRUE(isAll(composer.compose(), grey));
}

TEST_F(Composition, SizeOfTheScreen) {
    EXPECT_EQ(composer.compose().screen, defaultScreen(VideoMode::pal));
    const ScreenShape monitor{{1366, 768}, 1, 1};
    EXPECT_EQ(composer.compose(&monitor).screen, monitor);
    configure("[Screen]\nSize = 1280x720\n");
    EXPECT_EQ(Composer().compose(&monitor).screen, (ScreenShape{{1280, 720}, 1, 1}));
    const ScreenShape tile{{400, 300}, 1, 1};
    Composer wall;
    wall.useScreen(tile);
    EXPECT_EQ(wall.compose(&monitor).screen, tile);
    EXPECT_EQ(wall.compose().pixels.size(), 400U * 300U);
    wall.useScreen(std::nullopt);
    EXPECT_EQ(wall.compose().width(), 1280);
}

TEST_F(Composition, FitIsAParameter) {
    draw(shapeOf(640, 480));
    const ScreenShape monitor{{1280, 720}, 1, 1};
    EXPECT_EQ(composer.look(&monitor).placing.to, (Rectangle{160, 0, 960, 720}));
    EXPECT_EQ(pixel(composer.compose(&monitor), 0, 0), 0U);
    configure("[Screen]\nFit = fill\n");
    EXPECT_EQ(Composer().look(&monitor).placing.to, (Rectangle{0, 0, 1280, 720}));
    configure("[Screen]\nFit = crop\n");
    EXPECT_EQ(Composer().look(&monitor).placing.from, (Rectangle{0, 60, 640, 360}));
}

TEST_F(Composition, PicturesMayChangeTheirSizeAndFormat) {
    for (const PictureShape& shape :
         {shapeOf(1280, 720), shapeOf(176, 144, PixelFormat::nv12), shapeOf(4096, 2304), shapeOf(1, 1),
          shapeOf(1919, 1079), shapeOf(641, 1, PixelFormat::nv12), shapeOf(31, 4096, PixelFormat::bgrx)}) {
        draw(shape);
        const Picture& picture = composer.compose();
        ASSERT_FALSE(picture.blanked);
        const Rectangle at = composer.look().placing.to;
        EXPECT_EQ(pixel(picture, at.x, at.y), grey) << shape.width << 'x' << shape.height;
        EXPECT_EQ(pixel(picture, at.x + at.width - 1, at.y + at.height - 1), grey);
        EXPECT_FALSE(isAll(picture, 0));
    }
}

TEST_F(Composition, PictureOfTheScreensSizeIsShownPixelForPixel) {
    configure("[Screen]\nSize = 1920x1080\n");
    const reference::Samples samples = reference::zonePlate(1920, 1080);
    for (const PixelFormat format : {PixelFormat::i420, PixelFormat::nv12}) {
        const PictureShape shape = reference::shapeOf(1920, 1080, format);
        player.draw(reference::frameOf(shape, samples).view(), 0);
        const reference::Differences differences = reference::compare(
            composer.compose(), [&](int x, int y) { return reference::pixelOf(shape, samples, x, y); });
        EXPECT_LE(differences.largest, 1);
        EXPECT_LE(differences.average, 0.1);
    }
}

// A player draws as fast as it can, pictures of one colour in sizes and formats that change. Each composed picture is one
// of them. Painting takes longer than drawing, so it often has to begin again.
TEST_F(Composition, PicturesAreWholeWhileTheyChange) {
    const std::vector<PictureShape> shapes{shapeOf(160, 120), shapeOf(641, 361, PixelFormat::nv12),
                                           shapeOf(320, 240, PixelFormat::bgrx), shapeOf(1280, 720)};
    constexpr int brightest = 200;
    std::atomic<bool> done{false};
    std::thread drawing([&] {
        FrameStore store;
        for (int i = 0; !done; i = (i + 1) % brightest) {
            const PictureShape& shape = shapes[static_cast<std::size_t>(i) % shapes.size()];
            std::vector<std::uint8_t> bytes(bytesOf(shape), 0x80);
            const PlaneLayout y = planesOf(shape)[0];
            std::fill_n(bytes.begin(), y.stride * static_cast<std::size_t>(y.rows),
                        static_cast<std::uint8_t>(i + 1));
            store.draw(viewOf(shape, bytes.data()), i);
        }
    });
    const ScreenShape screen{{1280, 720}, 1, 1};
    std::uint64_t number = 0;
    int pictures = 0;
    const std::int64_t until = gettimeusec() + 20'000'000;
    for (; pictures < 60 && gettimeusec() < until; ++pictures) {
        number = composer.wait(number, 1000);
        const Picture& picture = composer.compose(&screen);
        const auto wanted = static_cast<std::uint32_t>(picture.info.source + 1) * 0x010101;
        const int x = picture.width() / 2; // no bar is there
        for (int y = 0; y < picture.height(); ++y)
            ASSERT_EQ(pixel(picture, x, y), wanted) << "row " << y << " of picture " << picture.info.number;
    }
    done = true;
    drawing.join();
    EXPECT_GT(pictures, 10);
}

TEST_F(Composition, VisitsTheFrameThatWasLookedAt) {
    int visits = 0;
    const auto count = [&](const PictureView& picture) {
        ++visits;
        EXPECT_EQ(picture.shape.width, 640);
        EXPECT_EQ(picture.plane[0][0], 0x80);
    };
    composer.look();
    EXPECT_FALSE(composer.visitFrame(count)) << "there is none";
    draw(shapeOf(640, 480));
    EXPECT_EQ(composer.look().info.number, 1U);
    EXPECT_TRUE(composer.visitFrame(count));
    EXPECT_TRUE(composer.visitFrame(count)) << "it may be visited again";
    draw(shapeOf(320, 240));
    EXPECT_TRUE(composer.visitFrame(count)) << "it is still there";
    for (int i = 0; i < 3; ++i)
        draw(shapeOf(320, 240));
    EXPECT_FALSE(composer.visitFrame(count)) << "it was overwritten";
    player.blank();
    composer.look();
    EXPECT_FALSE(composer.visitFrame(count)) << "not visible";
    EXPECT_EQ(visits, 3);
}

// Draws a picture as another process would.
void drawApart(int source) {
    const pid_t pid = fork();
    if (pid == 0) {
        const PictureShape shape = shapeOf(64, 48);
        const std::vector<std::uint8_t> bytes(bytesOf(shape), 0x80);
        _exit(FrameStore().draw(viewOf(shape, bytes.data()), source).number == 0 ? 1 : 0);
    }
    int status = -1;
    waitpid(pid, &status, 0);
    ASSERT_EQ(status, 0);
}

TEST_F(Composition, PassesOverThePictureBeforeTheNewest) {
    draw(shapeOf(64, 48), 1);
    EXPECT_EQ(composer.look().info.number, 1U);
    draw(shapeOf(64, 48), 1);
    drawApart(2);
    EXPECT_EQ(composer.look().info.number, 3U);
}

TEST_F(Composition, LooksAtAPlayersLastPictureBeforeTheNextPlayersFirst) {
    composer.showLastPictures();
    draw(shapeOf(64, 48), 1);
    drawApart(2);
    EXPECT_EQ(composer.look().info.number, 2U) << "nothing was looked at before";
    drawApart(3);
    EXPECT_EQ(composer.look().info.number, 3U) << "the last picture was looked at";
    draw(shapeOf(64, 48), 4);
    EXPECT_EQ(composer.look().info.number, 4U);
    draw(shapeOf(64, 48), 4);
    draw(shapeOf(64, 48), 4);
    EXPECT_EQ(composer.look().info.number, 6U) << "both by the same player";
    draw(shapeOf(64, 48), 4);
    drawApart(5);
    EXPECT_EQ(composer.look().info.number, 7U);
    EXPECT_TRUE(composer.visitFrame([](const PictureView&) {}));
    EXPECT_EQ(composer.wait(7, 0), 8U) << "the next one waits";
    EXPECT_EQ(composer.look().info.number, 8U);
    EXPECT_EQ(composer.look().info.number, 8U);
    draw(shapeOf(64, 48), 4);
    EXPECT_EQ(composer.look().info.number, 9U);
    draw(shapeOf(64, 48), 4);
    drawApart(6);
    drawApart(6);
    EXPECT_EQ(composer.look().info.number, 12U) << "the new player is ahead";
}

TEST_F(Composition, AnOldLastPictureIsNotWorthAMoment) {
    composer.showLastPictures();
    draw(shapeOf(64, 48), 1);
    EXPECT_EQ(composer.look().info.number, 1U);
    draw(shapeOf(64, 48), 1);
    usleep(600'000);
    drawApart(2);
    EXPECT_EQ(composer.look().info.number, 3U);
}

TEST_F(Composition, LookTellsTheAgeOfTheFrame) {
    EXPECT_EQ(composer.look().frameAgeUs, 0);
    const FrameInfo info = draw(shapeOf(640, 480));
    const std::int64_t age = composer.look().frameAgeUs;
    EXPECT_GE(age, 0);
    EXPECT_LE(age, gettimeusec() - info.time);
}

TEST_F(Composition, OverlaysChangeTheirVersionOnlyWhenTheyChange) {
    draw(televisionShape(VideoMode::pal));
    EXPECT_EQ(composer.look().overlayVersion, composer.look().overlayVersion);
    const std::uint64_t none = composer.look().overlayVersion;
    osdPrintf(1, 0, "Gate");
    const std::uint64_t one = composer.look().overlayVersion;
    EXPECT_NE(one, none);
    ASSERT_NE(composer.look().overlays, nullptr);
    EXPECT_EQ(composer.look().overlays->size(), 1U);
    draw(televisionShape(VideoMode::pal));
    EXPECT_EQ(composer.look().overlayVersion, one);
}

TEST_F(Composition, LabelNamesTheSourceForAWhile) {
    configure("[Screen]\nShowName = 1\n[Encoder.Front door]\nAddress = 127.0.0.1\n");
    draw(televisionShape(VideoMode::pal));
    EXPECT_TRUE(hasLabel(composer.compose()));
    const std::int64_t until = gettimeusec() + 10'000'000;
    while (hasLabel(composer.compose()) && gettimeusec() < until)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(hasLabel(composer.compose()));
    Composer later;
    EXPECT_FALSE(hasLabel(later.compose()))
        << "a new program knows from the store since when the source is shown";
}

TEST_F(Composition, OperatorTogglesTheName) {
    configure("[Encoder.Front door]\nAddress = 127.0.0.1\n");
    draw(televisionShape(VideoMode::pal));
    EXPECT_FALSE(hasLabel(composer.compose())) << "Screen.ShowName is not set";
    composer.toggleName();
    EXPECT_TRUE(hasLabel(composer.compose()));
    composer.toggleName();
    EXPECT_FALSE(hasLabel(composer.compose()));
}

TEST_F(Composition, LabelSaysThatThePictureIsStill) {
    draw(televisionShape(VideoMode::pal));
    status(0, "Still", 40);
    EXPECT_TRUE(hasLabel(composer.compose()));
    status(0, "Still", "");
    EXPECT_FALSE(hasLabel(Composer().compose()));
}

TEST_F(Composition, ClockChangesOnlyTheLabel) {
    configure("[Screen]\nShowClock = yes\n");
    draw(televisionShape(VideoMode::pal));
    osdPrintf(0, 0, "Gate");
    const Look& first = composer.look();
    ASSERT_EQ(first.overlays->size(), 2U);
    const std::uint64_t text = first.overlays->at(0).version;
    const std::uint64_t label = first.overlays->at(1).version;
    const std::int64_t until = gettimeusec() + 10'000'000;
    while (composer.look().overlays->at(1).version == label && gettimeusec() < until)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_NE(composer.look().overlays->at(1).version, label) << "the clock goes";
    EXPECT_EQ(composer.look().overlays->at(0).version, text) << "the text is not rendered again";
}

TEST_F(Composition, NoticeIsShownAboveTheLabelForItsTime) {
    draw(televisionShape(VideoMode::pal));
    composer.notice("There is no source 7", 60'000);
    EXPECT_TRUE(hasLabel(composer.compose()));
    composer.notice("", 0);
    EXPECT_FALSE(hasLabel(composer.compose()));
    composer.notice("12", 1);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_FALSE(hasLabel(composer.compose()));
}

TEST_F(Composition, BadParameterIsLoggedOnce) {
    configure("[Screen]\nSize = 1281x720\nFit = stretch\nShowName = 0\nShowClock = true\n");
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(composer.look().screen, defaultScreen(VideoMode::pal));
        std::this_thread::sleep_for(std::chrono::milliseconds(60));
    }
    const std::string lines = log();
    for (const char* name :
         {"Screen.Size takes", "Screen.Fit takes", "Screen.ShowName takes", "Screen.ShowClock takes"})
        EXPECT_EQ(lines.find(name), lines.rfind(name)) << name;
    EXPECT_THAT(lines, testing::HasSubstr("Screen.Size takes auto or WIDTHxHEIGHT"));
    EXPECT_THAT(lines, testing::HasSubstr("not \"1281x720\""));
    EXPECT_THAT(lines, testing::HasSubstr("Screen.ShowClock takes yes or no, not \"true\""));
}

} // namespace
} // namespace screen

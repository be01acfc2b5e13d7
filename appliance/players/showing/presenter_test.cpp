// From the decoded picture to the screen: copying, keeping ready, showing, comparing.
#include "appliance/players/showing/presenter.h"

#include "appliance/players/showing/shown_shape.h"
#include "tests/support/screen_picture.h"

#include <libcommon/clock.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <vector>

namespace player {
namespace {

namespace fs = std::filesystem;

using Luma = std::function<int(int x, int y)>;

// A decoded picture without colour, its rows further apart than they need to be, as decoders make them.
class Decoded {
public:
    Decoded(int width, int height, const Luma& luma, screen::PixelFormat format = screen::PixelFormat::i420) {
        view_.shape.width = width;
        view_.shape.height = height;
        view_.shape.format = format;
        const screen::PlaneLayouts planes = screen::planesOf(view_.shape);
        for (std::size_t i = 0; i < planes.size() && planes[i].rows > 0; ++i) {
            view_.stride[i] = planes[i].rowBytes + gap;
            bytes_[i].assign(view_.stride[i] * static_cast<std::size_t>(planes[i].rows), i == 0 ? 77 : 128);
            view_.plane[i] = bytes_[i].data();
        }
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                bytes_[0][static_cast<std::size_t>(y) * view_.stride[0] + static_cast<std::size_t>(x)] =
                    static_cast<std::uint8_t>(luma(x, y));
    }
    Decoded(const Decoded&) = delete;
    Decoded& operator=(const Decoded&) = delete;

    screen::PictureView& view() { return view_; }

private:
    static constexpr std::size_t gap = 19;
    std::array<std::vector<std::uint8_t>, 3> bytes_;
    screen::PictureView view_;
};

class PresenterTest : public testing::Test {
protected:
    PresenterTest() {
        char folder[] = "/tmp/presenter-XXXXXX";
        root = mkdtemp(folder);
        options.source = 5;
    }
    ~PresenterTest() override { fs::remove_all(root); }

    std::string path() const { return root / "frames"; }
    Presenter& presenter() {
        if (!presenter_)
            presenter_ =
                std::make_unique<Presenter>(options, screen::FrameStore(path()), [this] { ++firsts; });
        return *presenter_;
    }
    void give(int width, int height, const Luma& luma) {
        presenter().picture(Decoded(width, height, luma).view());
    }
    void giveGrey(int luma, int width = 720, int height = 576) {
        give(width, height, [luma](int, int) { return luma; });
    }
    screen::Frame newest() {
        screen::Frame frame;
        store().newest(frame);
        return frame;
    }
    screen::FrameStore store() { return screen::FrameStore(path()); }
    static int grey(const screen::Frame& frame, int x, int y) { return screen::brightnessAt(frame, x, y); }

    fs::path root;
    PlayerOptions options;
    int firsts = 0;
    std::unique_ptr<Presenter> presenter_;
};

TEST_F(PresenterTest, DrawsNothingBeforeItsTurnAndThenTheNewestPicture) {
    giveGrey(60);
    giveGrey(100);
    giveGrey(235);
    EXPECT_EQ(firsts, 1);
    EXPECT_EQ(store().newestInfo().number, 0U);
    presenter().show();
    EXPECT_EQ(store().newestInfo().number, 1U);
    EXPECT_EQ(store().newestInfo().source, 5);
    EXPECT_EQ(grey(newest(), 360, 288), 235);
    giveGrey(16);
    EXPECT_EQ(store().newestInfo().number, 2U);
    EXPECT_EQ(grey(newest(), 360, 288), 16);
    presenter().stop();
    giveGrey(100);
    EXPECT_EQ(store().newestInfo().number, 2U);
    EXPECT_EQ(firsts, 1);
}

TEST_F(PresenterTest, TurnWithoutAPictureShowsTheFirstOneThatArrives) {
    presenter().show();
    EXPECT_EQ(store().newestInfo().number, 0U);
    giveGrey(100);
    EXPECT_EQ(store().newestInfo().number, 1U);
}

TEST_F(PresenterTest, SamePictureIsNoChangeButTheSmallestDifferenceIs) {
    EXPECT_EQ(presenter().lastChange(), 0);
    giveGrey(100);
    const std::int64_t first = presenter().lastChange();
    EXPECT_GT(first, 0);
    giveGrey(100);
    EXPECT_EQ(presenter().lastChange(), first);
    give(720, 576, [](int x, int y) { return x == 719 && y == 575 ? 101 : 100; });
    const std::int64_t second = presenter().lastChange();
    EXPECT_GT(second, first);
    presenter().show();
    give(720, 576, [](int x, int y) { return x == 719 && y == 575 ? 101 : 100; });
    EXPECT_EQ(presenter().lastChange(), second) << "also while it is shown";
}

TEST_F(PresenterTest, WaitsForAFreshDrawingOrUntilItsPatienceEnds) {
    presenter().show();
    giveGrey(100);
    std::int64_t begin = gettimeusec();
    presenter().waitForDrawing(10'000, 10'000);
    EXPECT_LT(gettimeusec() - begin, 5'000'000) << "the last drawing was fresh";
    begin = gettimeusec();
    presenter().waitForDrawing(-1, 30);
    EXPECT_GE(gettimeusec() - begin, 29'000);
}

// Every pixel of the picture, and not a row of the one before.
TEST_F(PresenterTest, SizeMayChangeInTheStream) {
    const auto shows = [&](int width, int height, int luma) {
        const screen::Frame frame = newest();
        EXPECT_EQ(frame.shape.width, width);
        EXPECT_EQ(frame.shape.height, height);
        int wrong = 0;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                wrong += grey(frame, x, y) == luma ? 0 : 1;
        EXPECT_EQ(wrong, 0) << width << "x" << height;
    };
    int luma = 20;
    presenter().show();
    for (const auto& [width, height] : {std::pair{720, 576},
                                        {352, 288},
                                        {1920, 1080},
                                        {1, 1},
                                        {1919, 1079},
                                        {33, 7},
                                        {4096, 16},
                                        {16, 4096},
                                        {720, 576}}) {
        giveGrey(luma, width, height);
        shows(width, height, luma);
        luma += 20;
    }
    EXPECT_EQ(store().newestInfo().number, 9U);
}

TEST_F(PresenterTest, SizeMayChangeBeforeItShows) {
    giveGrey(100, 352, 288);
    giveGrey(120, 1280, 720);
    giveGrey(140, 640, 480);
    presenter().show();
    EXPECT_EQ(newest().shape.width, 640);
    EXPECT_EQ(grey(newest(), 639, 479), 140);
    EXPECT_EQ(firsts, 1);
}

TEST_F(PresenterTest, RoomForThePictureIsMadeBeforeItShows) {
    giveGrey(100, 3840, 2160);
    EXPECT_GT(fs::file_size(path()), std::uintmax_t{4} * 3840 * 2160 * 3 / 2);
    const auto before = fs::file_size(path());
    presenter().show();
    giveGrey(120, 3840, 2160);
    EXPECT_EQ(fs::file_size(path()), before);
}

TEST_F(PresenterTest, HandsInWhatTheDecoderMakes) {
    presenter().show();
    Decoded picture(
        640, 360, [](int x, int y) { return (x + y) % 256; }, screen::PixelFormat::nv12);
    picture.view().shape.matrix = screen::ColourMatrix::bt709;
    picture.view().shape.fullRange = true;
    picture.view().shape.aspectNumerator = 4;
    picture.view().shape.aspectDenominator = 3;
    presenter().picture(picture.view());
    const screen::Frame frame = newest();
    EXPECT_EQ(frame.shape, picture.view().shape);
    EXPECT_EQ(grey(frame, 100, 30), 130);
    EXPECT_EQ(grey(frame, 639, 359), 998 % 256);
}

TEST_F(PresenterTest, PicturesThatCannotBeShownAreDropped) {
    Decoded picture(64, 64, [](int, int) { return 100; });
    screen::PictureView broken = picture.view();
    broken.shape.width = 5000;
    presenter().picture(broken);
    broken = picture.view();
    broken.plane[1] = nullptr;
    presenter().picture(broken);
    broken = picture.view();
    broken.stride[0] = 63;
    presenter().picture(broken);
    broken = picture.view();
    broken.shape.format = screen::PixelFormat::bgrx;
    broken.stride[0] = 4 * 64;
    presenter().picture(broken);
    EXPECT_EQ(firsts, 0);
    EXPECT_EQ(presenter().lastPicture(), 0);
    presenter().picture(picture.view());
    EXPECT_EQ(firsts, 1);
}

// Two fields of a bright bar that moves: each row is shifted against its neighbours.
int combed(int x, int y) {
    const int bar = x - (y % 2) * 24;
    return bar > 300 && bar < 400 ? 200 : 50;
}

TEST_F(PresenterTest, CombsAreSmoothedAsConfigured) {
    struct Case {
        Interlace interlace;
        bool smoothed;
    };
    for (const Case& one : {Case{Interlace::asItIs, false}, Case{Interlace::automatic, true},
                            Case{Interlace::smoothed, true}}) {
        options.interlace = one.interlace;
        presenter_.reset();
        presenter().show();
        give(720, 576, combed);
        const screen::Frame frame = newest();
        const int difference = std::abs(grey(frame, 310, 200) - grey(frame, 310, 201));
        EXPECT_EQ(difference < 40, one.smoothed) << difference;
    }
}

TEST_F(PresenterTest, AutomaticLeavesWholePicturesSharp) {
    options.interlace = Interlace::automatic;
    presenter().show();
    give(720, 576, [](int /*x*/, int y) { return y < 288 ? 50 : 200; });
    EXPECT_EQ(grey(newest(), 360, 288) - grey(newest(), 360, 287), 150);
}

TEST_F(PresenterTest, TurningIsLeftToWhereItIsShown) {
    options.turned = true;
    giveGrey(16);
    give(720, 576, [](int x, int y) { return x < 360 && y < 288 ? 235 : 16; });
    presenter().show();
    EXPECT_EQ(newest().shape.turn, screen::Turn::half);
    EXPECT_EQ(grey(newest(), 0, 0), 235);
    EXPECT_EQ(grey(newest(), 719, 575), 16);
}

screen::PictureShape shapeOf(int width, int height, int aspectNumerator = 1, int aspectDenominator = 1) {
    screen::PictureShape shape;
    shape.width = width;
    shape.height = height;
    shape.aspectNumerator = aspectNumerator;
    shape.aspectDenominator = aspectDenominator;
    return shape;
}

TEST(ShownShape, AnalogueSizesAreFourToThree) {
    for (const auto& [width, height] : {std::pair{720, 576},
                                        {704, 576},
                                        {352, 288},
                                        {704, 480},
                                        {720, 480},
                                        {176, 144},
                                        {352, 240},
                                        {720, 288}}) {
        const screen::PictureShape shape = shownShape(shapeOf(width, height), false);
        EXPECT_EQ(3 * width * shape.aspectNumerator, 4 * height * shape.aspectDenominator) << width;
    }
    EXPECT_EQ(shownShape(shapeOf(720, 576), false).aspectNumerator, 16);
    EXPECT_EQ(shownShape(shapeOf(720, 576), false).aspectDenominator, 15);
}

TEST(ShownShape, OtherSizesAndWhatTheStreamSaysStay) {
    for (const auto& [width, height] :
         {std::pair{640, 480}, {1280, 720}, {1920, 1080}, {480, 640}, {1024, 768}})
        EXPECT_EQ(shownShape(shapeOf(width, height), false), shapeOf(width, height));
    EXPECT_EQ(shownShape(shapeOf(720, 576, 64, 45), false), shapeOf(720, 576, 64, 45))
        << "wide analogue video";
    EXPECT_EQ(shownShape(shapeOf(640, 480), true).turn, screen::Turn::half);
}

} // namespace
} // namespace player

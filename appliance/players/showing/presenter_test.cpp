// From the decoded picture to the screen: converting, keeping ready, showing, comparing.
#include "appliance/players/showing/presenter.h"

#include "appliance/players/showing/picture_hash.h"

#include <libcommon/clock.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <thread>

namespace player {
namespace {

namespace fs = std::filesystem;

using Luma = std::function<int(int x, int y)>;

// A decoded picture in I420 without colour.
GstSample* sampleOf(int width, int height, const Luma& luma) {
    GstVideoInfo info;
    gst_video_info_set_format(&info, GST_VIDEO_FORMAT_I420, static_cast<guint>(width),
                              static_cast<guint>(height));
    GstBuffer* buffer = gst_buffer_new_allocate(nullptr, GST_VIDEO_INFO_SIZE(&info), nullptr);
    gst_buffer_memset(buffer, 0, 128, GST_VIDEO_INFO_SIZE(&info));
    GstVideoFrame frame;
    gst_video_frame_map(&frame, &info, buffer, GST_MAP_WRITE);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            static_cast<std::uint8_t*>(
                GST_VIDEO_FRAME_PLANE_DATA(&frame, 0))[y * GST_VIDEO_FRAME_PLANE_STRIDE(&frame, 0) + x] =
                static_cast<std::uint8_t>(luma(x, y));
    gst_video_frame_unmap(&frame);
    GstCaps* caps = gst_video_info_to_caps(&info);
    GstSample* sample = gst_sample_new(buffer, caps, nullptr, nullptr);
    gst_caps_unref(caps);
    gst_buffer_unref(buffer);
    return sample;
}

class PresenterTest : public testing::Test {
protected:
    PresenterTest() {
        gst_init(nullptr, nullptr);
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
        GstSample* sample = sampleOf(width, height, luma);
        presenter().picture(sample);
        gst_sample_unref(sample);
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
    static int grey(const screen::Frame& frame, int x, int y) {
        return frame.bytes.at(std::size_t(4) * static_cast<std::size_t>(y * frame.shape.width + x));
    }

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
    EXPECT_NEAR(grey(newest(), 360, 288), 255, 2);
    giveGrey(16);
    EXPECT_EQ(store().newestInfo().number, 2U);
    EXPECT_NEAR(grey(newest(), 360, 288), 0, 2);
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

TEST_F(PresenterTest, SizeMayChangeInTheStream) {
    presenter().show();
    giveGrey(100, 720, 576);
    giveGrey(100, 352, 288);
    giveGrey(100, 1920, 1080);
    giveGrey(100, 2, 2);
    EXPECT_EQ(store().newestInfo().number, 4U);
}

TEST_F(PresenterTest, SamplesThatAreNotPicturesAreDropped) {
    GstBuffer* buffer = gst_buffer_new_allocate(nullptr, 10, nullptr);
    GstCaps* caps = gst_caps_from_string("audio/x-raw,rate=8000");
    GstSample* sample = gst_sample_new(buffer, caps, nullptr, nullptr);
    presenter().picture(sample);
    gst_sample_unref(sample);
    sample = gst_sample_new(nullptr, nullptr, nullptr, nullptr);
    presenter().picture(sample);
    gst_sample_unref(sample);
    gst_caps_unref(caps);
    caps = gst_caps_from_string("video/x-raw,format=I420,width=720,height=576,framerate=25/1");
    sample = gst_sample_new(buffer, caps, nullptr, nullptr); // ten bytes for a whole picture
    presenter().picture(sample);
    gst_sample_unref(sample);
    gst_caps_unref(caps);
    gst_buffer_unref(buffer);
    EXPECT_EQ(firsts, 0);
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
    EXPECT_GT(grey(newest(), 360, 288) - grey(newest(), 360, 287), 150);
}

TEST_F(PresenterTest, TurnedBy180Degrees) {
    options.turned = true;
    giveGrey(16);
    give(720, 576, [](int x, int y) { return x < 360 && y < 288 ? 235 : 16; });
    presenter().show();
    EXPECT_GT(grey(newest(), 719, 575), 240);
    EXPECT_LT(grey(newest(), 0, 0), 10);
}

GstVideoInfo infoOf(int width, int height, int parN = 1, int parD = 1) {
    GstVideoInfo info;
    gst_video_info_set_format(&info, GST_VIDEO_FORMAT_I420, static_cast<guint>(width),
                              static_cast<guint>(height));
    GST_VIDEO_INFO_PAR_N(&info) = parN;
    GST_VIDEO_INFO_PAR_D(&info) = parD;
    return info;
}

TEST(PlaceOnScreen, KeepsTheShapeOnAFourToThreeScreen) {
    const Place all{0, 0, 720, 576};
    for (const auto& [width, height] : {std::pair{720, 576},
                                        {704, 576},
                                        {352, 288},
                                        {640, 480},
                                        {320, 240},
                                        {704, 480},
                                        {176, 144},
                                        {1024, 768}})
        EXPECT_EQ(placeOnScreen(infoOf(width, height), 720, 576), all) << width;
    EXPECT_EQ(placeOnScreen(infoOf(720, 480), 720, 480), (Place{0, 0, 720, 480}));
    EXPECT_EQ(placeOnScreen(infoOf(1280, 720), 720, 576), (Place{0, 72, 720, 432}));
    EXPECT_EQ(placeOnScreen(infoOf(480, 640), 720, 576), (Place{157, 0, 406, 576}));
    EXPECT_EQ(placeOnScreen(infoOf(720, 576, 64, 45), 720, 576), (Place{0, 72, 720, 432}))
        << "wide analogue video";
    EXPECT_EQ(placeOnScreen(infoOf(4096, 2), 720, 576).height, 2);
    EXPECT_EQ(placeOnScreen(infoOf(2, 4096), 720, 576).width, 2);
}

} // namespace
} // namespace player

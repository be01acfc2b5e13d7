#include "appliance/screen/composition.h"

#include <libcommon/clock.h>

#include <cairo.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace screen {
namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t grey = 0x808080;

Frame greyFrame(VideoMode mode = VideoMode::pal, std::int64_t time = 100) {
    Frame frame;
    frame.info = {5, time, 1, 2};
    frame.shape = televisionShape(mode);
    frame.bytes.assign(bytesOf(frame.shape), grey & 0xff);
    for (std::size_t unused = 3; unused < frame.bytes.size(); unused += 4)
        frame.bytes[unused] = 0;
    return frame;
}

// 0x00RRGGBB; a row of 720 pixels has no gap behind it.
std::vector<std::uint32_t> pixelsOf(const Frame& frame) {
    std::vector<std::uint32_t> pixels(frame.bytes.size() / sizeof(std::uint32_t));
    std::memcpy(pixels.data(), frame.bytes.data(), frame.bytes.size());
    return pixels;
}

// The rows [first, last] that have a colour; first > last: none.
struct Extent {
    int first = 1 << 20;
    int last = -1;
    int left = 1 << 20;
    int right = -1;
    bool any() const { return last >= 0; }
};

Extent extentOf(const Picture& picture, bool (*wanted)(std::uint32_t)) {
    Extent extent;
    for (int y = 0; y < picture.height; ++y)
        for (int x = 0; x < picture.width; ++x)
            if (wanted(picture.pixels[std::size_t(1) * y * picture.width + x] & 0xffffff)) {
                extent = {std::min(extent.first, y), std::max(extent.last, y), std::min(extent.left, x),
                          std::max(extent.right, x)};
            }
    return extent;
}

bool white(std::uint32_t pixel) {
    return pixel == 0xffffff;
}
bool dark(std::uint32_t pixel) {
    return (pixel & 0xff) < 0x30;
}
bool changed(std::uint32_t pixel) {
    return pixel != grey;
}

const std::string longText =
    "No connection to encoder Loading dock, north gate, second camera from the left "
    "(encoder-north-gate-17.warehouse.example.net:8080), trying again in ten seconds";

TEST(Composition, NoFrameIsBlack) {
    Composer composer;
    const Picture& picture = composer.compose(nullptr, VideoMode::ntsc, 0, {});
    EXPECT_TRUE(picture.blanked);
    EXPECT_EQ(picture.info.number, 0U);
    EXPECT_EQ(picture.width, 720);
    EXPECT_EQ(picture.height, 480);
    EXPECT_EQ(picture.pixels, std::vector<std::uint32_t>(720 * 480, 0));
}

TEST(Composition, FrameWithoutTextIsShownAsItIs) {
    Composer composer;
    const Frame frame = greyFrame();
    const Picture& picture = composer.compose(&frame, VideoMode::pal, 0, {});
    EXPECT_FALSE(picture.blanked);
    EXPECT_EQ(picture.info, frame.info);
    EXPECT_EQ(picture.pixels, pixelsOf(frame));
}

TEST(Composition, BlankingHidesFramesUpToItsTimeAndNoneAfter) {
    Composer composer;
    const Frame frame = greyFrame(VideoMode::pal, 100);
    EXPECT_FALSE(composer.compose(&frame, VideoMode::pal, 99, {}).blanked);
    EXPECT_TRUE(composer.compose(&frame, VideoMode::pal, 100, {}).blanked);
    const Picture& picture = composer.compose(&frame, VideoMode::pal, 101, {});
    EXPECT_TRUE(picture.blanked);
    EXPECT_EQ(picture.pixels[1000], 0U);
    EXPECT_EQ(picture.info.number, 5U) << "the newest frame is told although it is not seen";
}

TEST(Composition, TextIsWhiteWithADarkOutlineInTheUpperThird) {
    Composer composer;
    const Frame frame = greyFrame();
    const Picture& picture = composer.compose(&frame, VideoMode::pal, 0, {"Gate", "", ""});
    const Extent letters = extentOf(picture, white);
    const Extent outline = extentOf(picture, dark);
    ASSERT_TRUE(letters.any());
    ASSERT_TRUE(outline.any());
    EXPECT_LT(outline.first, letters.first);
    EXPECT_GT(outline.last, letters.last);
    EXPECT_LT(outline.left, letters.left);
    EXPECT_GT(outline.right, letters.right);
    EXPECT_LT(outline.last, 576 / 3);
    EXPECT_GE(outline.first, 576 / 40) << "inside what a monitor shows of a picture";
    EXPECT_NEAR(letters.left + letters.right, 720, 8);
}

TEST(Composition, EveryLineHasItsOwnPlace) {
    Composer composer;
    const Frame frame = greyFrame();
    std::array<Extent, 3> alone;
    for (std::size_t line = 0; line < alone.size(); ++line) {
        ScreenText text;
        text[line] = "Ag";
        alone[line] = extentOf(composer.compose(&frame, VideoMode::pal, 0, text), changed);
        ASSERT_TRUE(alone[line].any());
    }
    EXPECT_LT(alone[0].last, alone[1].first);
    EXPECT_LT(alone[1].last, alone[2].first);
    const Extent all = extentOf(composer.compose(&frame, VideoMode::pal, 0, {"Ag", "Ag", "Ag"}), changed);
    EXPECT_EQ(all.first, alone[0].first);
    EXPECT_EQ(all.last, alone[2].last);
    EXPECT_LT(all.last, 576 / 3);
}

TEST(Composition, LongTextsWrapAndStayInsideThePicture) {
    Composer composer;
    for (const VideoMode mode : {VideoMode::pal, VideoMode::ntsc}) {
        const Frame frame = greyFrame(mode);
        const Extent one = extentOf(composer.compose(&frame, mode, 0, {"Short", "", ""}), changed);
        const Extent wrapped = extentOf(composer.compose(&frame, mode, 0, {longText, "", ""}), changed);
        EXPECT_GT(wrapped.last - wrapped.first, (one.last - one.first) * 3) << "it takes several rows";
        EXPECT_LT(wrapped.last, frame.shape.height / 3);
        EXPECT_GT(wrapped.left, 20);
        EXPECT_LT(wrapped.right, 700);
        const Extent three =
            extentOf(composer.compose(&frame, mode, 0, {longText, longText, longText}), changed);
        EXPECT_LT(three.last, frame.shape.height * 2 / 5);
        EXPECT_GT(three.left, 20);
        EXPECT_LT(three.right, 700);
    }
}

TEST(Composition, TextsOfAnyAlphabetAreDrawn) {
    Composer composer;
    const Frame frame = greyFrame();
    for (const char* text : {"Süd-Tor", "Вход", "Πύλη", "بوابة", "門", "é\xcc\x81"})
        EXPECT_TRUE(extentOf(composer.compose(&frame, VideoMode::pal, 0, {text, "", ""}), changed).any())
            << text;
}

TEST(Composition, InvalidTextsAreDrawnUpToTheirFault) {
    Composer composer;
    const Frame frame = greyFrame();
    std::string zeros("A\0B", 3);
    for (const std::string& text :
         {std::string("\xff\xfe"
                      "A"),
          std::string("A\x01\x1b[31mB\nC\tD"), zeros, std::string(255, '\xc3'), std::string(255, 'W')}) {
        const Extent extent =
            extentOf(composer.compose(&frame, VideoMode::pal, 0, {text, text, text}), changed);
        EXPECT_TRUE(extent.any());
        EXPECT_LT(extent.last, frame.shape.height * 2 / 5);
    }
    EXPECT_FALSE(extentOf(composer.compose(&frame, VideoMode::pal, 0, {"  \n", "\t", ""}), changed).any());
}

TEST(Composition, ClearedTextLeavesNothingBehind) {
    Composer composer;
    const Frame frame = greyFrame();
    composer.compose(&frame, VideoMode::pal, 0, {"A", "B", "C"});
    EXPECT_EQ(composer.compose(&frame, VideoMode::pal, 0, {}).pixels, pixelsOf(frame));
}

TEST(Composition, TextIsShownOnABlankScreen) {
    Composer composer;
    const Frame frame = greyFrame();
    const Picture& picture = composer.compose(&frame, VideoMode::pal, 200, {"No connection", "", ""});
    EXPECT_TRUE(picture.blanked);
    EXPECT_TRUE(extentOf(picture, white).any());
}

class CompositionFiles : public testing::Test {
protected:
    CompositionFiles() {
        char folder[] = "/tmp/composition-XXXXXX";
        root = mkdtemp(folder);
        setenv("APPLIANCE_ROOT", root.c_str(), 1);
    }
    ~CompositionFiles() override { fs::remove_all(root); }
    fs::path root;
};

TEST_F(CompositionFiles, PngHoldsThePicture) {
    Composer composer;
    Frame frame = greyFrame();
    frame.bytes[0] = 0x20;
    frame.bytes[1] = 0x10;
    frame.bytes[2] = 0xff;
    const Picture& picture = composer.compose(&frame, VideoMode::pal, 0, {"Gate", "", ""});
    const fs::path path = root / "picture.png";
    ASSERT_TRUE(writePng(picture, path));
    cairo_surface_t* read = cairo_image_surface_create_from_png(path.c_str());
    ASSERT_EQ(cairo_surface_status(read), CAIRO_STATUS_SUCCESS);
    ASSERT_EQ(cairo_image_surface_get_width(read), 720);
    ASSERT_EQ(cairo_image_surface_get_height(read), 576);
    const auto* pixels = reinterpret_cast<const std::uint32_t*>(cairo_image_surface_get_data(read));
    for (std::size_t i = 0; i < picture.pixels.size(); ++i)
        ASSERT_EQ(pixels[i] & 0xffffff, picture.pixels[i] & 0xffffff) << "pixel " << i;
    cairo_surface_destroy(read);
}

TEST_F(CompositionFiles, PngThatCannotBeWrittenIsAClearFailure) {
    Composer composer;
    const Picture& picture = composer.compose(nullptr, VideoMode::pal, 0, {});
    errno = 0;
    EXPECT_FALSE(writePng(picture, root / "missing" / "picture.png"));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(writePng(picture, root));
    if (fs::exists("/dev/full")) {
        EXPECT_FALSE(writePng(picture, "/dev/full"));
        EXPECT_EQ(errno, ENOSPC);
        EXPECT_TRUE(fs::exists("/dev/full")) << "a device was removed";
    }
}

TEST_F(CompositionFiles, StoreIsComposedAsItIs) {
    const std::string path = root / "frames";
    FrameStore player(path);
    Composer composer{FrameStore(path)};
    EXPECT_EQ(composer.compose().info.number, 0U);
    const Frame frame = greyFrame();
    player.draw(frame.view(), 3);
    EXPECT_EQ(composer.wait(0, 10'000), 1U);
    const Picture& shown = composer.compose();
    EXPECT_FALSE(shown.blanked);
    EXPECT_EQ(shown.pixels, pixelsOf(frame));
    player.blank();
    EXPECT_TRUE(composer.compose().blanked);
    player.draw(frame.view(), 3);
    EXPECT_FALSE(composer.compose().blanked);
}

} // namespace
} // namespace screen

#include "appliance/screen/text_layers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace screen {
namespace {

constexpr std::uint32_t grey = 0x808080;
constexpr Size television{720, 576};

// The rectangle of the pixels that have a colour.
struct Extent {
    int first = 1 << 20;
    int last = -1;
    int left = 1 << 20;
    int right = -1;
    bool any() const { return last >= 0; }
};

Extent extentOf(const std::vector<std::uint32_t>& pixels, Size screen, bool (*wanted)(std::uint32_t)) {
    Extent extent;
    for (int y = 0; y < screen.height; ++y)
        for (int x = 0; x < screen.width; ++x)
            if (wanted(pixels[std::size_t(1) * y * screen.width + x]))
                extent = {std::min(extent.first, y), std::max(extent.last, y), std::min(extent.left, x),
                          std::max(extent.right, x)};
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

// A grey picture with these texts.
std::vector<std::uint32_t> shown(const ScreenText& texts, Size screen = television) {
    TextLayers layers;
    layers.update(texts, screen);
    std::vector<std::uint32_t> pixels(std::size_t(1) * screen.width * screen.height, grey);
    for (const OverlayImage& image : layers.images())
        layOver(image, screen, pixels.data(), static_cast<std::size_t>(screen.width));
    return pixels;
}

Extent changedBy(const ScreenText& texts, Size screen = television) {
    return extentOf(shown(texts, screen), screen, changed);
}

const std::string longText =
    "No connection to encoder Loading dock, north gate, second camera from the left "
    "(encoder-north-gate-17.warehouse.example.net:8080), trying again in ten seconds";

TEST(TextLayers, TextIsWhiteWithADarkOutlineInTheUpperThird) {
    const std::vector<std::uint32_t> pixels = shown({"Gate", "", ""});
    const Extent letters = extentOf(pixels, television, white);
    const Extent outline = extentOf(pixels, television, dark);
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

TEST(TextLayers, EveryLineHasItsOwnPlace) {
    std::array<Extent, 3> alone;
    for (std::size_t line = 0; line < alone.size(); ++line) {
        ScreenText texts;
        texts[line] = "Ag";
        alone[line] = changedBy(texts);
        ASSERT_TRUE(alone[line].any());
    }
    EXPECT_LT(alone[0].last, alone[1].first);
    EXPECT_LT(alone[1].last, alone[2].first);
    const Extent all = changedBy({"Ag", "Ag", "Ag"});
    EXPECT_EQ(all.first, alone[0].first);
    EXPECT_EQ(all.last, alone[2].last);
    EXPECT_LT(all.last, 576 / 3);
}

TEST(TextLayers, LettersAreAsHighOnEveryScreen) {
    const Extent small = changedBy({"Gate", "", ""});
    for (const Size screen : {Size{1280, 720}, Size{1920, 1080}, Size{3840, 2160}}) {
        const Extent extent = changedBy({"Gate", "", ""}, screen);
        const double wanted = double(small.last - small.first) / 576;
        EXPECT_NEAR(double(extent.last - extent.first) / screen.height, wanted, wanted / 5) << screen.height;
        EXPECT_LT(extent.last, screen.height / 3);
    }
}

TEST(TextLayers, LongTextsWrapAndStayInsideTheScreen) {
    for (const Size screen :
         {television, Size{720, 480}, Size{1920, 1080}, Size{1080, 1920}, Size{160, 120}}) {
        const Extent one = changedBy({"Short", "", ""}, screen);
        const Extent wrapped = changedBy({longText, "", ""}, screen);
        EXPECT_GT(wrapped.last - wrapped.first, one.last - one.first) << "it takes several rows";
        EXPECT_GT(wrapped.left, screen.width / 40);
        EXPECT_LT(wrapped.right, screen.width - screen.width / 40);
        const Extent three = changedBy({longText, longText, longText}, screen);
        EXPECT_LT(three.last, screen.height / 2);
        EXPECT_GT(three.left, screen.width / 40);
        EXPECT_LT(three.right, screen.width - screen.width / 40);
    }
}

TEST(TextLayers, ThreeLongTextsStayInTheUpperTwoFifths) {
    for (const Size screen : {television, Size{720, 480}, Size{1920, 1080}})
        EXPECT_LT(changedBy({longText, longText, longText}, screen).last, screen.height * 2 / 5);
}

TEST(TextLayers, TextsOfAnyAlphabetAreDrawn) {
    for (const char* text : {"Süd-Tor", "Вход", "Πύλη", "بوابة", "門", "é\xcc\x81", "🚪"})
        EXPECT_TRUE(changedBy({text, "", ""}).any()) << text;
}

TEST(TextLayers, EmojiKeepTheirColours) {
    const std::vector<std::uint32_t> pixels = shown({"🔴", "", ""});
    const Extent red = extentOf(pixels, television, [](std::uint32_t pixel) {
        return (pixel >> 16) > 0xa0 && ((pixel >> 8) & 0xff) < 0x60 && (pixel & 0xff) < 0x60;
    });
    EXPECT_TRUE(red.any()) << "is fonts-noto-color-emoji installed?";
}

TEST(TextLayers, InvalidTextsAreDrawnWithoutTheirFaults) {
    const std::string zeros("A\0B", 3);
    for (const std::string& text :
         {std::string("\xff\xfe"
                      "A"),
          std::string("A\x01\x1b[31mB\nC\tD"), zeros, std::string(255, '\xc3'), std::string(255, 'W')}) {
        const Extent extent = changedBy({text, text, text});
        EXPECT_TRUE(extent.any());
        EXPECT_LT(extent.last, 576 * 2 / 5);
    }
    EXPECT_FALSE(changedBy({"  \n", "\t", ""}).any());
}

TEST(TextLayers, ImagesAreRenderedOnlyWhenATextOrTheScreenChanges) {
    TextLayers layers;
    EXPECT_TRUE(layers.update({"A", "", ""}, television));
    ASSERT_EQ(layers.images().size(), 1U);
    const std::uint64_t version = layers.images()[0].version;
    EXPECT_FALSE(layers.update({"A", "", ""}, television));
    EXPECT_EQ(layers.images()[0].version, version);
    EXPECT_TRUE(layers.update({"A", "", ""}, {1280, 720}));
    EXPECT_NE(layers.images()[0].version, version);
    EXPECT_TRUE(layers.update({}, {1280, 720}));
    EXPECT_TRUE(layers.images().empty());
}

TEST(TextLayers, ImagesAreSmall) {
    TextLayers layers;
    layers.update({"Front door", "", "Alarm"}, {3840, 2160});
    ASSERT_EQ(layers.images().size(), 2U);
    for (const OverlayImage& image : layers.images()) {
        EXPECT_LT(image.at.width, 3840 / 2);
        EXPECT_LT(image.at.height, 2160 / 10);
        EXPECT_EQ(image.pixels.size(), std::size_t(1) * image.at.width * image.at.height);
    }
}

} // namespace
} // namespace screen

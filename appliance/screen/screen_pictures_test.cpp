// Pictures of whole screens. With SCREEN_PICTURES=FOLDER in the environment the test leaves them there as PNG files, to
// be looked at.
#include "appliance/screen/composition.h"

#include "appliance/mark/frame_mark.h"
#include "appliance/screen/appliance_root_fixture.h"
#include "appliance/screen/reference_picture.h"
#include "appliance/screen/screen_settings.h"

#include <libcommon/display.h>
#include <libcommon/status.h>

#include <cairo.h>
#include <cmath>
#include <cstdlib>

namespace screen {
namespace {

constexpr std::array<const char*, 3> fits{"bars", "fill", "crop"};
constexpr std::array<Size, 4> screens{{{720, 576}, {1280, 720}, {1920, 1080}, {3840, 2160}}};

// Draws a circle, which shows the proportions, a frame, which shows the edges, colour bars and the frame mark.
std::vector<std::uint32_t> drawn(Size size, double pixelAspect) {
    std::vector<std::uint32_t> pixels(std::size_t(1) * size.width * size.height);
    auto* bytes = reinterpret_cast<unsigned char*>(pixels.data());
    cairo_surface_t* surface = cairo_image_surface_create_for_data(bytes, CAIRO_FORMAT_RGB24, size.width,
                                                                   size.height, 4 * size.width);
    cairo_t* context = cairo_create(surface);
    for (int bar = 0; bar < 8; ++bar) {
        const int code = 7 - bar;
        cairo_set_source_rgb(context, code & 2 ? 0.75 : 0, code & 4 ? 0.75 : 0, code & 1 ? 0.75 : 0);
        cairo_rectangle(context, bar * size.width / 8.0, 0, size.width / 8.0 + 1, size.height);
        cairo_fill(context);
    }
    cairo_set_source_rgb(context, 1, 1, 1);
    cairo_set_line_width(context, size.height / 60.0);
    cairo_rectangle(context, 0, 0, size.width, size.height);
    cairo_stroke(context);
    cairo_translate(context, size.width / 2.0, size.height / 2.0);
    cairo_scale(context, 1 / pixelAspect, 1);
    cairo_arc(context, 0, 0, size.height * 0.35, 0, 2 * M_PI);
    cairo_stroke(context);
    cairo_destroy(context);
    cairo_surface_destroy(surface);
    drawFrameMark(bytes, size.width, size.height, 4 * size.width, {3, 1234});
    return pixels;
}

int sampleOf(int plane, std::uint32_t pixel) {
    const double red = pixel >> 16 & 255;
    const double green = pixel >> 8 & 255;
    const double blue = pixel & 255;
    const double bright = 0.299 * red + 0.587 * green + 0.114 * blue;
    const double sample = plane == 0   ? 16 + bright * 219 / 255
                          : plane == 1 ? 128 + (blue - bright) / 1.772 * 224 / 255
                                       : 128 + (red - bright) / 1.402 * 224 / 255;
    return static_cast<int>(std::lround(sample));
}

Frame testCard(Size size, int numerator, int denominator, PixelFormat format) {
    PictureShape shape = reference::shapeOf(size.width, size.height, format);
    shape.aspectNumerator = numerator;
    shape.aspectDenominator = denominator;
    const std::vector<std::uint32_t> pixels = drawn(size, double(numerator) / denominator);
    return reference::frameOf(shape, [&](int plane, int x, int y) {
        const int step = plane == 0 ? 1 : 2;
        const int column = std::min(x * step, size.width - 1);
        const int row = std::min(y * step, size.height - 1);
        return sampleOf(plane, pixels[std::size_t(1) * row * size.width + column]);
    });
}

class ScreenPictures : public ApplianceRoot {
protected:
    // Composes what a screen of that size shows, and leaves the picture for a person.
    Picture shown(Size screen, const std::string& name) {
        Composer composer;
        composer.useScreen(screenOf(screen));
        const Picture& picture = composer.compose();
        if (const char* folder = std::getenv("SCREEN_PICTURES")) {
            EXPECT_TRUE(
                writePng(picture, std::string(folder) + "/" + sizeText(screen) + "-" + name + ".png"));
        }
        return picture;
    }
    static std::size_t blackColumns(const Picture& picture) {
        const auto row =
            static_cast<std::size_t>(picture.height() / 2) * static_cast<std::size_t>(picture.width());
        std::size_t count = 0;
        while (count < static_cast<std::size_t>(picture.width()) && picture.pixels[row + count] == 0)
            ++count;
        return count;
    }
    void configureScreen(const std::string& fit) {
        configure(
            "[Screen]\nFit = " + fit +
            "\nShowName = always\nShowClock = yes\n[Encoder.Front door]\nAddress = 1\n[Encoder.門 بوابة 🚪]\n"
            "Address = 2\n");
    }
    FrameStore player;
};

TEST_F(ScreenPictures, EachSourceOnEachScreenInEachFit) {
    const std::vector<std::pair<std::string, Frame>> sources{
        {"4x3", testCard({704, 576}, 12, 11, PixelFormat::nv12)},
        {"16x9", testCard({1920, 1080}, 1, 1, PixelFormat::i420)},
    };
    status(0, "Still", 40);
    for (const char* fit : fits) {
        configureScreen(fit);
        for (const auto& [name, frame] : sources) {
            ASSERT_NE(player.draw(frame.view(), 0).number, 0U);
            for (const Size screen : screens) {
                const Picture picture = shown(screen, name + '-' + fit);
                const bool bars = std::string(fit) == "bars" && name == "4x3" && screen.width != 720;
                EXPECT_EQ(blackColumns(picture) > 0, bars) << sizeText(screen) << ' ' << name << ' ' << fit;
            }
        }
    }
}

TEST_F(ScreenPictures, TextsInFiveScripts) {
    configureScreen("bars");
    const Frame frame = testCard({1280, 720}, 1, 1, PixelFormat::i420);
    player.draw(frame.view(), 1);
    const std::vector<std::array<const char*, 3>> texts{
        {"Front door: Überwachung café", "Вход в здание – Πύλη", "الكاميرا الأمامية عند البوابة"},
        {"正門カメラ 監視中", "정문 카메라", "🚪 Door 🔴 alarm 👩‍🚒"},
        {"No connection to encoder Loading dock, north gate, second camera from the left "
         "(encoder-north-gate-17.warehouse.example.net:8080), trying again in ten seconds",
         "הדלת הקדמית", "ประตูหน้า"},
    };
    for (std::size_t i = 0; i < texts.size(); ++i) {
        for (int line = 0; line < 3; ++line)
            osdPrintf(line, 0, "%s", texts[i][static_cast<std::size_t>(line)]);
        for (const Size screen : screens) {
            const Picture picture = shown(screen, "texts-" + std::to_string(i + 1));
            EXPECT_TRUE(std::ranges::count(picture.pixels, 0xffffffU) > 100);
        }
    }
}

TEST_F(ScreenPictures, PortraitAndBlank) {
    configureScreen("bars");
    Frame frame = testCard({1280, 720}, 1, 1, PixelFormat::nv12);
    frame.shape.turn = Turn::right;
    player.draw(frame.view(), 0);
    EXPECT_GT(blackColumns(shown({1280, 720}, "portrait")), 400U);
    player.blank();
    osdPrintf(0, 0, "No connection to Front door");
    EXPECT_TRUE(shown({1280, 720}, "blank").blanked);
}

} // namespace
} // namespace screen

// The two back ends draw the same looks: their difference is bounded.
#include "appliance/screen/monitor/back_end.h"

#include "appliance/screen/monitor/test_looks.h"
#include "appliance/screen/monitor/window.h"
#include "tests/support/x_server.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <SDL.h>

namespace screen {
namespace {

// What SDL's OpenGL and its renderer on the CPU both keep: the mean of the largest difference of a pixel's three
// colours, and the share of pixels that differ clearly (edges of a picture that is scaled).
constexpr double meanLimit = 3.0;
constexpr int clearly = 12;
constexpr double clearlyShare = 0.02;

constexpr Size windowSize{640, 360};

PictureShape shapeOf(int width, int height, PixelFormat format) {
    PictureShape shape;
    shape.width = width;
    shape.height = height;
    shape.format = format;
    return shape;
}

class BackEnds : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        if (const std::string reason = x_server::XServer::whyNot(); !reason.empty())
            GTEST_SKIP() << reason;
        server = std::make_unique<x_server::XServer>(windowSize.width, windowSize.height);
        setenv("DISPLAY", server->display().c_str(), 1);
        unsetenv("WAYLAND_DISPLAY");
        setenv("SDL_RENDER_DRIVER", GetParam(), 1);
    }

    // What a back end shows of the part on the display.
    std::vector<std::uint32_t> shown(bool gpu, const Part& part) {
        std::string reason;
        const auto window = Window::open({"x11", true, windowSize, false}, reason);
        if (window == nullptr)
            throw std::runtime_error("no window: " + reason);
        for (int i = 0; i < 20; ++i, SDL_Delay(5))
            SDL_PumpEvents();
        const auto backEnd = gpu ? makeGpuBackEnd(window->sdl(), reason) : makeMemoryBackEnd(window->sdl());
        if (backEnd == nullptr)
            throw std::runtime_error("no renderer: " + reason);
        std::vector<std::uint32_t> pixels;
        // The server may take the picture a moment after it was handed over.
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(backEnd->show({part}, true), Drawn::shown);
            SDL_PumpEvents();
            SDL_Delay(20);
        }
        return server->screen().pixels;
    }

    void expectAlike(TestLook& look, const std::string& what) { expectAlike(look.part(), what); }
    void expectAlike(const Part& part, const std::string& what) {
        const std::vector<std::uint32_t> memory = shown(false, part);
        const std::vector<std::uint32_t> gpu = shown(true, part);
        EXPECT_GT(*std::max_element(memory.begin(), memory.end()), 0U) << what << ": nothing was drawn";
        std::cout << what << ": mean difference " << meanDifference(memory, gpu) << ", clearly different "
                  << 100 * shareAbove(clearly, memory, gpu) << " %\n";
        EXPECT_LE(meanDifference(memory, gpu), meanLimit) << what;
        EXPECT_LE(shareAbove(clearly, memory, gpu), clearlyShare) << what;
    }

    std::unique_ptr<x_server::XServer> server;
};

TEST_P(BackEnds, DrawEachFormatAlike) {
    for (const PixelFormat format : {PixelFormat::bgrx, PixelFormat::i420, PixelFormat::nv12}) {
        TestLook look(windowSize, format);
        expectAlike(look, "format " + std::to_string(static_cast<int>(format)));
    }
}

TEST_P(BackEnds, DrawEachColourAlike) {
    for (const ColourMatrix matrix : {ColourMatrix::bt601, ColourMatrix::bt709})
        for (const bool full : {false, true}) {
            PictureShape shape = shapeOf(640, 360, PixelFormat::i420);
            shape.matrix = matrix;
            shape.fullRange = full;
            TestLook look(windowSize, shape, Fit::bars);
            expectAlike(look,
                        "matrix " + std::to_string(static_cast<int>(matrix)) + (full ? ", full range" : ""));
        }
}

TEST_P(BackEnds, WouldNotPassWithTheWrongColours) {
    PictureShape shape = shapeOf(640, 360, PixelFormat::i420);
    TestLook right(windowSize, shape, Fit::bars);
    shape.matrix = ColourMatrix::bt709;
    TestLook wrong(windowSize, shape, Fit::bars);
    EXPECT_GT(meanDifference(shown(false, right.part()), shown(true, wrong.part())), meanLimit);
}

TEST_P(BackEnds, DrawEachTurnAlike) {
    for (const Turn turn : {Turn::right, Turn::half, Turn::left}) {
        PictureShape shape = shapeOf(640, 480, PixelFormat::i420);
        shape.turn = turn;
        TestLook look(windowSize, shape, Fit::bars);
        expectAlike(look, "turn " + std::to_string(static_cast<int>(turn)));
    }
}

TEST_P(BackEnds, DrawEachFitAlike) {
    for (const Fit fit : {Fit::bars, Fit::fill, Fit::crop}) {
        PictureShape shape = shapeOf(352, 288, PixelFormat::nv12);
        shape.aspectNumerator = 12;
        shape.aspectDenominator = 11;
        TestLook look(windowSize, shape, fit);
        expectAlike(look, "fit " + std::to_string(static_cast<int>(fit)));
    }
}

TEST_P(BackEnds, DrawOddSizesAlike) {
    for (const PixelFormat format : {PixelFormat::i420, PixelFormat::nv12}) {
        TestLook look(windowSize, shapeOf(333, 251, format), Fit::bars);
        expectAlike(look, "format " + std::to_string(static_cast<int>(format)));
    }
}

TEST_P(BackEnds, DrawAScreenThatIsScaledIntoItsPlaceAlike) {
    TestLook look({1280, 720}, PixelFormat::i420);
    Part part = look.part();
    part.at = {40, 20, 480, 270};
    expectAlike(part, "scaled");
}

TEST_P(BackEnds, DrawAnEmptyScreenAlike) {
    TestLook look(windowSize, PixelFormat::i420);
    look.look().blanked = true;
    expectAlike(look, "blanked");
}

INSTANTIATE_TEST_SUITE_P(Renderer, BackEnds, testing::Values("opengl", "opengles2"),
                         [](const auto& each) { return std::string(each.param); });

// What the back end in memory keeps from one picture to the next.
class MemoryBackEnd : public BackEnds {};

TEST_P(MemoryBackEnd, DrawsOnlyWhatHasChanged) {
    std::string reason;
    const auto window = Window::open({"x11", true, windowSize, false}, reason);
    ASSERT_NE(window, nullptr) << reason;
    PictureShape shape = shapeOf(480, 360, PixelFormat::i420);
    TestLook look(windowSize, shape, Fit::bars); // with black bars at both sides
    const auto backEnd = makeMemoryBackEnd(window->sdl());
    const auto show = [&](bool whole) {
        ASSERT_EQ(backEnd->show({look.part()}, whole), Drawn::shown);
        SDL_PumpEvents();
        SDL_Delay(30);
    };
    show(true);
    show(true);
    const auto before = server->screen();
    EXPECT_EQ(before.pixels, look.painted());
    server->fill(0, 0, 8, 8, 0xff0000);     // in a bar
    server->fill(300, 300, 8, 8, 0xff0000); // in the picture
    show(false);
    EXPECT_EQ(server->part(300, 300, 1, 1).at(0, 0), 0xff0000U) << "nothing has changed";
    look.next();
    show(false);
    EXPECT_NE(server->part(300, 300, 1, 1).at(0, 0), 0xff0000U) << "there is a new frame";
    EXPECT_EQ(server->part(0, 0, 1, 1).at(0, 0), 0xff0000U) << "the bars are still there";
    show(true);
    EXPECT_EQ(server->screen().pixels, look.painted());
}

TEST_P(MemoryBackEnd, GoesOnAfterAFrameThatWasOverwritten) {
    std::string reason;
    const auto window = Window::open({"x11", true, windowSize, false}, reason);
    ASSERT_NE(window, nullptr) << reason;
    const auto backEnd = makeMemoryBackEnd(window->sdl());
    TestLook look(windowSize, PixelFormat::i420);
    Part part = look.part();
    const VisitFrame good = part.visit;
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(backEnd->show({part}, i == 0), Drawn::shown);
        SDL_PumpEvents();
        SDL_Delay(30);
    }
    const auto before = server->screen();
    look.next();
    part.visit = [&](const auto& visit) {
        good(visit);
        return false;
    };
    EXPECT_EQ(backEnd->show({part}, false), Drawn::stale);
    EXPECT_EQ(server->screen().pixels, before.pixels) << "the display still has the whole picture";
    part.visit = good;
    EXPECT_EQ(backEnd->show({part}, false), Drawn::shown);
    SDL_Delay(30);
    EXPECT_EQ(server->screen().pixels, look.painted());
}

INSTANTIATE_TEST_SUITE_P(Surface, MemoryBackEnd, testing::Values("software"),
                         [](const auto& each) { return std::string(each.param); });

} // namespace
} // namespace screen

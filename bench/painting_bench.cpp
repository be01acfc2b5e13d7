// What it costs to show a picture: looking at what there is, painting it on the CPU, and rendering texts and labels.
#include "appliance/screen/composition.h"
#include "appliance/screen/label.h"
#include "appliance/screen/painter.h"
#include "appliance/screen/text_layers.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

struct Case {
    const char* name;
    screen::PixelFormat format;
    screen::Size picture;
    screen::Size screen;
    screen::Turn turn = screen::Turn::none;
};

constexpr screen::Size television{720, 576};
constexpr screen::Size hd{1280, 720};
constexpr screen::Size fullHd{1920, 1080};
constexpr screen::Size ultraHd{3840, 2160};

constexpr Case cases[] = {
    {"720x576, one to one, I420", screen::PixelFormat::i420, television, television},
    {"720x576, one to one, NV12", screen::PixelFormat::nv12, television, television},
    {"720x576, one to one, BGRx", screen::PixelFormat::bgrx, television, television},
    {"1920x1080, one to one, I420", screen::PixelFormat::i420, fullHd, fullHd},
    {"1920x1080, one to one, NV12", screen::PixelFormat::nv12, fullHd, fullHd},
    {"1920x1080, one to one, BGRx", screen::PixelFormat::bgrx, fullHd, fullHd},
    {"1920x1080 to 1280x720, I420", screen::PixelFormat::i420, fullHd, hd},
    {"1920x1080 to 1280x720, NV12", screen::PixelFormat::nv12, fullHd, hd},
    {"1920x1080 to 720x576, I420", screen::PixelFormat::i420, fullHd, television},
    {"720x576 to 1920x1080, I420", screen::PixelFormat::i420, television, fullHd},
    {"1920x1080 to 3840x2160, I420", screen::PixelFormat::i420, fullHd, ultraHd},
    {"1920x1080 turned right, I420", screen::PixelFormat::i420, fullHd, {1080, 1920}, screen::Turn::right},
    {"1280x720 to 1920x1080, BGRx", screen::PixelFormat::bgrx, hd, fullHd},
};

void paint(benchmark::State& state, const Case& what) {
    screen::PictureShape shape;
    shape.width = what.picture.width;
    shape.height = what.picture.height;
    shape.format = what.format;
    shape.turn = what.turn;
    std::vector<std::uint8_t> bytes(screen::bytesOf(shape));
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<std::uint8_t>(i * 7 + i / 1000);
    screen::Look look;
    look.blanked = false;
    look.shape = shape;
    look.screen = {what.screen, 1, 1};
    look.placing = screen::place(shape, look.screen, screen::Fit::bars);
    const screen::PictureView view = screen::viewOf(shape, bytes.data());
    screen::Painter painter;
    screen::Picture picture;
    for (auto _ : state) {
        painter.paint(&view, look, picture);
        benchmark::DoNotOptimize(picture.pixels.data());
    }
}

void renderTexts(benchmark::State& state, const screen::Size& size) {
    screen::TextLayers texts;
    int count = 0;
    for (auto _ : state)
        texts.update({"Front door", std::to_string(++count), "No connection to the encoder"}, size);
}

void renderLabel(benchmark::State& state, const screen::Size& size) {
    screen::Label label(0);
    int seconds = 0;
    for (auto _ : state)
        label.update({"Front door", "", "12:34:" + std::to_string(10 + ++seconds % 50), ""}, size);
}

// In an appliance root of its own.
void look(benchmark::State& state) {
    const screen::PictureShape shape = screen::televisionShape(screen::VideoMode::pal);
    const std::vector<std::uint8_t> bytes(screen::bytesOf(shape));
    screen::FrameStore().draw(screen::viewOf(shape, bytes.data()), 0);
    screen::Composer composer;
    for (auto _ : state)
        benchmark::DoNotOptimize(composer.look().overlayVersion);
}

} // namespace

int main(int argc, char** argv) {
    char root[] = "/tmp/painting-XXXXXX";
    if (mkdtemp(root) == nullptr)
        return 1;
    setenv("APPLIANCE_ROOT", root, 1);
    benchmark::RegisterBenchmark("look", look)->Unit(benchmark::kMicrosecond);
    for (const screen::Size& size : {fullHd, ultraHd}) {
        const std::string height = std::to_string(size.height);
        benchmark::RegisterBenchmark(("three texts, " + height).c_str(), renderTexts, size)
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("label, " + height).c_str(), renderLabel, size)
            ->Unit(benchmark::kMillisecond);
    }
    for (const Case& what : cases)
        benchmark::RegisterBenchmark(what.name, paint, what)->Unit(benchmark::kMillisecond);
    benchmark::Initialize(&argc, argv);
    const bool usable = !benchmark::ReportUnrecognizedArguments(argc, argv);
    if (usable)
        benchmark::RunSpecifiedBenchmarks();
    std::filesystem::remove_all(root);
    return usable ? 0 : 2;
}

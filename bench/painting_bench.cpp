// What it costs to paint a picture on the CPU: conversion and scaling, without texts.
#include "appliance/screen/painter.h"

#include <benchmark/benchmark.h>

#include <cstdint>
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

} // namespace

int main(int argc, char** argv) {
    for (const Case& what : cases)
        benchmark::RegisterBenchmark(what.name, paint, what)->Unit(benchmark::kMillisecond);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

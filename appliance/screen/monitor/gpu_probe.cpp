#include "appliance/screen/monitor/gpu_probe.h"

#include "appliance/screen/monitor/back_end.h"
#include "appliance/screen/monitor/guard.h"
#include "appliance/screen/monitor/test_looks.h"
#include "appliance/screen/monitor/window.h"

#include <libcommon/log.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <SDL.h>
#include <strings.h>
#include <unistd.h>

namespace screen {
namespace {

constexpr int secondsAtMost = 10;
constexpr int pictures = 12;
constexpr Size probeSize{1280, 720};
constexpr double likeness = 3.0; // largest mean difference of a colour, of 255

enum Found : int { good = 0, none = 3, software = 4, different = 5, slow = 6 };

const char* wordsOf(int found) {
    switch (found) {
    case good:
        return "used: it draws right, with less work for the CPU";
    case none:
        return "not used: there is none";
    case software:
        return "not used: it is a program on the CPU";
    case different:
        return "not used: it draws something else";
    case slow:
        return "not used: it makes more work for the CPU than drawing in memory";
    default:
        return "not used: its driver crashed or did not answer";
    }
}

// The name that OpenGL tells while the renderer's context is current; "" for another interface.
std::string openGlRenderer() {
    using GetString = const unsigned char* (*)(unsigned);
    constexpr unsigned rendererName = 0x1f01; // GL_RENDERER
    const auto getString = reinterpret_cast<GetString>(SDL_GL_GetProcAddress("glGetString"));
    const unsigned char* name = getString == nullptr ? nullptr : getString(rendererName);
    return name == nullptr ? "" : reinterpret_cast<const char*>(name);
}

bool isReal(SDL_Window* window) {
    SDL_RendererInfo info;
    SDL_Renderer* renderer = SDL_GetRenderer(window);
    if (renderer == nullptr || SDL_GetRendererInfo(renderer, &info) != 0 ||
        (info.flags & SDL_RENDERER_ACCELERATED) == 0)
        return false;
    return !isSoftware(openGlRenderer()) && !isSoftware(info.name);
}

double cpuSeconds() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// CPU seconds for the test pictures.
double costOf(BackEnd& backEnd, TestLook& look) {
    const double before = cpuSeconds();
    for (int i = 0; i < pictures; ++i) {
        look.next();
        backEnd.show({look.part()}, false);
    }
    return cpuSeconds() - before;
}

std::vector<std::uint32_t> readBack(SDL_Window* window) {
    std::vector<std::uint32_t> pixels(static_cast<std::size_t>(probeSize.width) * probeSize.height);
    SDL_RenderReadPixels(SDL_GetRenderer(window), nullptr, SDL_PIXELFORMAT_XRGB8888, pixels.data(),
                         4 * probeSize.width);
    return pixels;
}

int probe(const std::string& driver) {
    std::string reason;
    const WindowOptions options{driver, false, probeSize, true};
    TestLook look(probeSize, PixelFormat::i420);
    double gpuCost = 0;
    {
        const auto window = Window::open(options, reason);
        const auto gpu = window == nullptr ? nullptr : makeGpuBackEnd(window->sdl(), reason);
        if (gpu == nullptr)
            return none;
        if (!isReal(window->sdl()))
            return software;
        gpu->show({look.part()}, true);
        if (window->size() == probeSize && meanDifference(readBack(window->sdl()), look.painted()) > likeness)
            return different;
        gpuCost = costOf(*gpu, look);
    }
    const auto window = Window::open(options, reason);
    if (window == nullptr)
        return none;
    const auto memory = makeMemoryBackEnd(window->sdl());
    memory->show({look.part()}, true);
    return gpuCost < costOf(*memory, look) ? good : slow;
}

// Whether the machine has a device that may be a graphics processor: without one the probe can be saved.
bool hasDevice() {
    constexpr std::array devices{"/dev/dri", "/dev/nvidiactl", "/dev/mali0"};
    return std::any_of(devices.begin(), devices.end(),
                       [](const char* device) { return access(device, F_OK) == 0; });
}

} // namespace

bool isSoftware(const std::string& renderer) {
    constexpr std::array names{"llvmpipe", "softpipe", "swrast", "software", "swiftshader", "lavapipe"};
    return std::any_of(names.begin(), names.end(),
                       [&](const char* name) { return strcasestr(renderer.c_str(), name) != nullptr; });
}

bool gpuIsGood(const std::string& driver) {
    if (!hasDevice())
        return false;
    const int found = runApart([&] { return probe(driver); }, secondsAtMost);
    logmsg(6, "The graphics processor of the display (%s) is %s", driver.c_str(), wordsOf(found));
    return found == good;
}

} // namespace screen

// What the frame store costs a player and a reader, compared with a plain copy of the same bytes in the same run.
//
// A player's cost is one finished picture (draw: lock, copy, commit). A reader's costs are a copy of the newest
// picture (copy) and a look at it in the store's memory (visit). Growing is one replacement of the smallest file
// by one for BGRx pictures of a little more than that size. All pictures go round in four buffers, as in the store, and so does the plain copy.
//
// Times are processor times of this thread. The ratio is the least of all rounds to the least of the plain copy, so a
// busy machine changes it little.
#include "appliance/screen/frame_store.h"

#include <algorithm>
#include <array>
#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <functional>
#include <limits>
#include <string>
#include <sys/statvfs.h>
#include <vector>

namespace {

namespace fs = std::filesystem;

using screen::PictureShape;
using screen::PixelFormat;

// Processor time of this thread in microseconds.
double threadTime() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

double leastOf(int rounds, const std::function<void()>& act) {
    double least = std::numeric_limits<double>::max();
    for (int i = 0; i < rounds; ++i) {
        const double begin = threadTime();
        act();
        least = std::min(least, threadTime() - begin);
    }
    return least;
}

struct Costs { // microseconds
    double plain = 0;
    double draw = 0;
    double copy = 0;
    double visit = 0;
    double grow = 0;
    bool complete = true; // every call succeeded
};

double plainCopy(int rounds, const std::vector<std::uint8_t>& picture) {
    std::array<std::vector<std::uint8_t>, 4> ring;
    ring.fill(picture);
    std::size_t next = 0;
    return leastOf(rounds, [&] {
        std::memcpy(ring.at(next++ % ring.size()).data(), picture.data(), picture.size());
        // The compiler must not drop a copy that nobody reads.
        asm volatile("" : : "r"(ring.data()) : "memory");
    });
}

Costs measure(const std::string& folder, const PictureShape& shape, int rounds) {
    Costs costs;
    const std::vector<std::uint8_t> picture(screen::bytesOf(shape), 0x5a);
    const screen::PictureView view = screen::viewOf(shape, picture.data());
    const std::string path = folder + "/frames";
    fs::remove(path);
    screen::FrameStore player(path);
    screen::FrameStore reader(path);
    costs.complete = player.setMode(screen::VideoMode::pal);
    // A little more than the smallest store at least, so that every size has to grow.
    PictureShape larger = shape;
    larger.height = std::max(shape.height, 576) + 16;
    larger.format = PixelFormat::bgrx;
    costs.grow = leastOf(1, [&] { costs.complete &= player.reserve(larger); });
    for (int i = 0; i < 8; ++i) // until each slot and each buffer has its memory
        costs.complete &= player.draw(view, 1).number != 0;
    costs.plain = plainCopy(rounds, picture);
    costs.draw = leastOf(rounds, [&] { costs.complete &= player.draw(view, 1).number != 0; });
    screen::Frame frame;
    costs.copy = leastOf(rounds, [&] { costs.complete &= reader.newest(frame); });
    costs.visit = leastOf(rounds, [&] {
        costs.complete &= reader.visitNewest([](const screen::PictureView&, const screen::FrameInfo&) {});
    });
    return costs;
}

struct Case {
    const char* name;
    int width;
    int height;
    PixelFormat format;
};

constexpr std::array cases{Case{"720x576 I420", 720, 576, PixelFormat::i420},
                           Case{"720x576 BGRx", 720, 576, PixelFormat::bgrx},
                           Case{"1280x720 I420", 1280, 720, PixelFormat::i420},
                           Case{"1280x720 NV12", 1280, 720, PixelFormat::nv12},
                           Case{"1920x1080 I420", 1920, 1080, PixelFormat::i420},
                           Case{"1920x1080 NV12", 1920, 1080, PixelFormat::nv12}};

// Returns whether every call succeeded and no ratio is above the limit.
bool run(const std::string& folder, int rounds, double limit) {
    std::printf("%-16s %10s %10s %7s %10s %7s %10s %7s %10s\n", "picture", "memcpy us", "draw us", "ratio",
                "copy us", "ratio", "visit us", "ratio", "grow us");
    bool good = true;
    for (const Case& one : cases) {
        PictureShape shape;
        shape.width = one.width;
        shape.height = one.height;
        shape.format = one.format;
        const Costs costs = measure(folder, shape, rounds);
        std::printf("%-16s %10.1f %10.1f %7.2f %10.1f %7.2f %10.1f %7.3f %10.0f\n", one.name, costs.plain,
                    costs.draw, costs.draw / costs.plain, costs.copy, costs.copy / costs.plain, costs.visit,
                    costs.visit / costs.plain, costs.grow);
        const bool complete =
            costs.complete && std::max({costs.draw, costs.copy, costs.visit}) <= limit * costs.plain;
        if (!complete)
            std::printf("%s: a call failed or cost more than %.1f copies\n", one.name, limit);
        good = good && complete;
    }
    return good;
}

// Memory, as /run is, where there is enough of it.
std::string temporaryFolder() {
    struct statvfs room {};
    const bool enough = statvfs("/dev/shm", &room) == 0 && room.f_bavail * room.f_frsize > (1ULL << 28);
    return enough ? "/dev/shm" : fs::temp_directory_path().string();
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app("What the frame store costs, compared with a copy of the same bytes.");
    int rounds = 500;
    double limit = 0;
    app.add_option("--rounds", rounds, "measurements of each call; the least counts")
        ->check(CLI::PositiveNumber);
    app.add_option("--assert", limit, "fail when a call costs more than that many copies")
        ->check(CLI::PositiveNumber);
    CLI11_PARSE(app, argc, argv);

    std::string folder = temporaryFolder() + "/store-bench-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr)
        return 1;
    setenv("LIBCOMMON_LOG", "stderr", 1);
    const bool good = run(folder, rounds, limit > 0 ? limit : std::numeric_limits<double>::max());
    fs::remove_all(folder);
    return good ? 0 : 1;
}

// decoder-monitor: shows the decoder's screen in a window or on a whole display.
#include "appliance/screen/monitor/monitor.h"
#include "appliance/screen/program_options.h"
#include "appliance/screen/wall/wall_monitor.h"

#include <libcommon/clock.h>

#include <CLI/CLI.hpp>
#include <map>
#include <string>
#include <vector>

namespace {

// "1280x720".
std::string takeSize(const std::string& text, screen::Size& size) {
    char rest = 0;
    screen::Size read;
    if (std::sscanf(text.c_str(), "%5dx%5d%c", &read.width, &read.height, &rest) != 2 || read.width < 160 ||
        read.height < 120 || read.width > 16'384 || read.height > 16'384)
        return "a size is WIDTHxHEIGHT in pixels, from 160x120 to 16384x16384";
    size = read;
    return "";
}

} // namespace

int main(int argc, char** argv) {
    screen::SessionOptions options;
    int seconds = 0;
    const std::map<std::string, screen::BackEndChoice> backEnds{{"auto", screen::BackEndChoice::automatic},
                                                                {"memory", screen::BackEndChoice::memory},
                                                                {"gpu", screen::BackEndChoice::gpu}};
    CLI::App app("Shows the decoder's screen: the picture with its on-screen texts.", "decoder-monitor");
    app.set_version_flag("--version", HOUSE_VERSION);
    bool fullscreen = false;
    bool windowed = false;
    CLI::Option* full =
        app.add_flag("--fullscreen", fullscreen, "Fill the display; the default on a console");
    app.add_flag("--window", windowed, "Show a window; the default on a desktop")->excludes(full);
    app.add_option("--size", "Size of the window, default 1280x720")
        ->type_name("WIDTHxHEIGHT")
        ->check([&](const std::string& text) { return takeSize(text, options.size); });
    app.add_option("--back-end", options.backEnd,
                   "What draws: memory, gpu (the graphics processor), or auto, which takes the graphics "
                   "processor where it is better")
        ->type_name("NAME")
        ->transform(CLI::CheckedTransformer(backEnds).description(""));
    std::string wall;
    std::vector<std::string> roots;
    CLI::Option* isWall =
        app.add_option("--wall", wall,
                       "Show several decoders side by side: 2x2 and the like, 1+5, or rectangles such as "
                       "\"0,0,50%,100%;50%,0,50%,100%\" (left, top, width, height)")
            ->type_name("LAYOUT");
    app.add_option("ROOT", roots, "The appliance root of each tile of the wall, in the layout's order")
        ->needs(isWall)
        ->type_name("");
    CLI::Option* limited =
        app.add_option("--seconds", seconds, "End after that many seconds")->check(CLI::Range(1, 1'000'000));
    if (const auto ended = screen::parseCommandLine(app, argc, argv))
        return *ended;
    if (fullscreen || windowed)
        options.fullscreen = fullscreen;
    if (limited->count() > 0)
        options.until = gettimeusec() + seconds * std::int64_t{1'000'000};
    return isWall->count() > 0 ? screen::runWall(options, wall, roots) : screen::runMonitor(options);
}

// decoder-monitor: a window, or a whole screen, that shows what the decoder shows.
#include "appliance/screen/command_line.h"
#include "appliance/screen/monitor.h"

#include <CLI/CLI.hpp>

int main(int argc, char** argv) {
    screen::MonitorOptions options;
    int seconds = 0;
    CLI::App app("Shows the decoder's screen: the picture with its on-screen texts.", "decoder-monitor");
    app.set_version_flag("--version", HOUSE_VERSION);
    app.add_option(
        "--sink", options.sink,
        "GStreamer video sink to show it with: kmssink on a console, ximagesink, waylandsink, fakesink; "
        "chosen for the desktop when not given");
    app.add_flag("--fullscreen", options.fullscreen, "Fill the screen, where the sink can");
    CLI::Option* limited =
        app.add_option("--seconds", seconds, "End after so many seconds")->check(CLI::Range(1, 1'000'000));
    if (const auto ended = screen::parseCommandLine(app, argc, argv))
        return *ended;
    if (limited->count() > 0)
        options.seconds = seconds;
    return screen::runMonitor(options);
}

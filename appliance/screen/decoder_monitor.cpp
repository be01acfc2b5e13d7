// decoder-monitor: shows the decoder's screen in a window or on a whole monitor.
#include "appliance/screen/monitor.h"
#include "appliance/screen/program_options.h"

#include <CLI/CLI.hpp>

int main(int argc, char** argv) {
    screen::MonitorOptions options;
    int seconds = 0;
    CLI::App app("Shows the decoder's screen: the picture with its on-screen texts.", "decoder-monitor");
    app.set_version_flag("--version", HOUSE_VERSION);
    app.add_option("--sink", options.sink,
                   "GStreamer video sink: kmssink on a console, ximagesink, waylandsink, fakesink; "
                   "default: the first one for the desktop that works");
    app.add_flag("--fullscreen", options.fullscreen, "Fill the screen, if the sink can");
    CLI::Option* limited =
        app.add_option("--seconds", seconds, "End after that many seconds")->check(CLI::Range(1, 1'000'000));
    if (const auto ended = screen::parseCommandLine(app, argc, argv))
        return *ended;
    if (limited->count() > 0)
        options.seconds = seconds;
    return screen::runMonitor(options);
}
